#include "gateway/CConfigTable.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>

namespace ZELPC {

CConfigTable::CConfigTable(const toml::table* table, std::string file, std::string name)
    : table_(table), file_(std::move(file)), name_(std::move(name)) {}

const toml::node* CConfigTable::Take(std::string_view key) {
    known_.emplace(key);
    return table_ == nullptr ? nullptr : table_->get(key);
}

void CConfigTable::FailAt(const toml::node* node, std::string_view reason) const {
    const auto line = node == nullptr ? 0 : node->source().begin.line;
    throw CConfigError(line == 0 ? fmt::format("{}: {}", file_, reason)
                                 : fmt::format("{}:{}: {}", file_, line, reason));
}

void CConfigTable::Fail(std::string_view key, std::string_view reason) const {
    const toml::node* const node = table_ == nullptr ? nullptr : table_->get(key);
    FailAt(node != nullptr ? node : table_,
           name_.empty() ? fmt::format("{}: {}", key, reason) : fmt::format("{}.{}: {}", name_, key, reason));
}

std::string CConfigTable::Text(std::string_view key, std::string_view otherwise) {
    const toml::node* const node = Take(key);
    if (node == nullptr) {
        return std::string(otherwise);
    }
    const auto text = node->value_exact<std::string>();
    if (!text.has_value()) {
        Fail(key, "a text in quotation marks is expected");
    }
    return *text;
}

std::string CConfigTable::Required(std::string_view key) {
    std::string text = Text(key);
    if (text.empty()) {
        Fail(key, "is missing");
    }
    return text;
}

std::int64_t CConfigTable::Number(std::string_view key, std::int64_t least, std::int64_t most, std::int64_t otherwise) {
    const toml::node* const node = Take(key);
    if (node == nullptr) {
        return otherwise;
    }
    const auto number = node->value_exact<std::int64_t>();
    if (!number.has_value() || *number < least || *number > most) {
        Fail(key, fmt::format("a whole number from {} to {} is expected", least, most));
    }
    return *number;
}

bool CConfigTable::Flag(std::string_view key, bool otherwise) {
    const toml::node* const node = Take(key);
    if (node == nullptr) {
        return otherwise;
    }
    const auto flag = node->value_exact<bool>();
    if (!flag.has_value()) {
        Fail(key, "true or false is expected");
    }
    return *flag;
}

std::chrono::milliseconds CConfigTable::Seconds(std::string_view key, double least, double most, double otherwise) {
    const toml::node* const node = Take(key);
    double seconds = otherwise;
    if (node != nullptr) {
        const auto number = node->is_number() ? node->value<double>() : std::nullopt;
        // Written so that "nan" is refused too.
        if (!number.has_value() || !(*number >= least && *number <= most)) {
            Fail(key, fmt::format("seconds from {} to {} are expected", least, most));
        }
        seconds = *number;
    }
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

std::size_t CConfigTable::Choice(std::string_view key, std::initializer_list<std::string_view> texts,
                                 std::size_t otherwise) {
    const std::string text = Text(key, std::data(texts)[otherwise]);
    for (std::size_t index = 0; index < texts.size(); ++index) {
        if (text == std::data(texts)[index]) {
            return index;
        }
    }
    Fail(key, fmt::format("\"{}\" is none of \"{}\"", text, fmt::join(texts, "\", \"")));
}

std::vector<std::string> CConfigTable::Texts(std::string_view key) {
    const toml::node* const node = Take(key);
    std::vector<std::string> texts;
    if (node == nullptr) {
        return texts;
    }
    const toml::array* const array = node->as_array();
    if (array == nullptr) {
        Fail(key, "a list of texts is expected");
    }
    for (const toml::node& element : *array) {
        const auto text = element.value_exact<std::string>();
        if (!text.has_value()) {
            FailAt(&element, fmt::format("{}: a list of texts is expected", key));
        }
        texts.push_back(*text);
    }
    return texts;
}

std::optional<std::string> CConfigTable::File(std::string_view key) {
    const std::string path = Text(key);
    if (path.empty()) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        Fail(key, fmt::format("{} cannot be read", path));
    }
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.pop_back();
    }
    return text;
}

CConfigTable CConfigTable::Table(std::string_view key) {
    const toml::node* const node = Take(key);
    if (node != nullptr && !node->is_table()) {
        Fail(key, fmt::format("a table is expected: [{}]", key));
    }
    return {node == nullptr ? nullptr : node->as_table(), file_, std::string(key)};
}

std::vector<CConfigTable> CConfigTable::Tables(std::string_view key) {
    const toml::node* const node = Take(key);
    std::vector<CConfigTable> tables;
    if (node == nullptr) {
        return tables;
    }
    if (!node->is_array_of_tables()) {
        Fail(key, fmt::format("tables are expected: [[{}]]", key));
    }
    for (const toml::node& element : *node->as_array()) {
        tables.emplace_back(element.as_table(), file_, std::string(key));
    }
    return tables;
}

void CConfigTable::Finish() const {
    if (table_ == nullptr) {
        return;
    }
    for (const auto& [key, node] : *table_) {
        if (!known_.contains(key.str())) {
            FailAt(&node, fmt::format("{}{}: there is no such setting", name_.empty() ? "" : name_ + ".", key.str()));
        }
    }
}

}  // namespace ZELPC
