#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// Text as HTML; nothing in it is markup any more.
std::string Escape(std::string_view text);

/// A table that a narrow screen shows as cards. Cells are HTML; an empty one is left out there.
class CHtmlTable {
public:
    CHtmlTable(std::string caption, std::vector<std::string> columns)
        : caption_(std::move(caption)), columns_(std::move(columns)) {}

    void Add(std::vector<std::string> cells);
    /// The table, or `nothing` when it has no rows.
    std::string Html(std::string_view nothing) const;

private:
    const std::string caption_;
    const std::vector<std::string> columns_;
    std::string rows_;
};

/// A word in a coloured frame: "good", "bad", "wait" or "".
std::string Badge(std::string_view text, std::string_view kind);
/// What all buttons of a page send beside their own: where to go on, the guard, and the token when it is asked for.
std::string ActForm(const std::string& back, const std::string& guard, bool askToken);
/// How a button says that it belongs to the page's ActForm.
inline constexpr std::string_view kOfActForm = "form=\"acts\"";
/// A button of the page's ActForm. `what` is said of it where it is heard and not seen.
std::string ActButton(std::string_view action, std::initializer_list<std::pair<std::string_view, std::string>> fields,
                      std::string_view button, std::string_view what);
/// Local time for people; empty for 0.
std::string TimeText(std::int64_t milliseconds);
/// "20261121103637" as "2026-11-21 10:36:37"; other texts as they are.
std::string DigitsText(const std::string& digits);

}  // namespace ZELPC
