#pragma once

#include <toml++/toml.h>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// What is wrong in a configuration, with file and line.
class CConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One table of a configuration, read strictly: a value of the wrong type or out of its bounds, and a key that nobody
/// asked for, are errors that name their line. Misspelt, a setting would silently not be set.
class CConfigTable {
public:
    /// `table` may be null: then every value is absent. It must outlive this object.
    CConfigTable(const toml::table* table, std::string file, std::string name);

    std::string Text(std::string_view key, std::string_view otherwise = {});
    /// A text that must be there and not empty.
    std::string Required(std::string_view key);
    std::int64_t Number(std::string_view key, std::int64_t least, std::int64_t most, std::int64_t otherwise);
    bool Flag(std::string_view key, bool otherwise);
    std::chrono::milliseconds Seconds(std::string_view key, double least, double most, double otherwise);
    /// One of the texts, as its index.
    std::size_t Choice(std::string_view key, std::initializer_list<std::string_view> texts, std::size_t otherwise = 0);
    std::vector<std::string> Texts(std::string_view key);
    /// The content of the file that `key` names, without the line end at its end; nothing when there is no such key.
    std::optional<std::string> File(std::string_view key);

    CConfigTable Table(std::string_view key);
    /// The tables of an array of tables, `[[key]]`.
    std::vector<CConfigTable> Tables(std::string_view key);

    /// Everything was read; what is left nobody knows. Throws.
    void Finish() const;
    /// Throws an error at `key`, or at the table when there is no such key.
    [[noreturn]] void Fail(std::string_view key, std::string_view reason) const;

private:
    const toml::node* Take(std::string_view key);
    [[noreturn]] void FailAt(const toml::node* node, std::string_view reason) const;

    const toml::table* table_;
    std::string file_;
    std::string name_;
    std::set<std::string, std::less<>> known_;
};

}  // namespace ZELPC
