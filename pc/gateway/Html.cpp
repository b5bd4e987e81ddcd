#include "gateway/Html.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

#include "web/WebMessage.h"

namespace ZELPC {

std::string Escape(std::string_view text) {
    std::string html;
    for (const char character : text) {
        switch (character) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            case '\'':
                html += "&#39;";
                break;
            default:
                html += character;
        }
    }
    return html;
}

void CHtmlTable::Add(std::vector<std::string> cells) {
    rows_ += "<tr>";
    for (std::size_t index = 0; index < cells.size(); ++index) {
        rows_ += fmt::format("<td data-label=\"{}\"{}><div>{}</div></td>", Escape(columns_[index]),
                             cells[index].empty() ? " class=\"none\"" : "", cells[index]);
    }
    rows_ += "</tr>\n";
}

std::string CHtmlTable::Html(std::string_view nothing) const {
    if (rows_.empty()) {
        return fmt::format("<p class=\"quiet\">{}</p>\n", Escape(nothing));
    }
    std::string html = fmt::format("<table><caption>{}</caption><thead><tr>", Escape(caption_));
    for (const std::string& column : columns_) {
        html += fmt::format("<th scope=\"col\">{}</th>", Escape(column));
    }
    return html + "</tr></thead><tbody>\n" + rows_ + "</tbody></table>\n";
}

std::string Badge(std::string_view text, std::string_view kind) {
    return fmt::format("<span class=\"badge {}\">{}</span>", kind, Escape(text));
}

std::string ActForm(const std::string& back, const std::string& guard, bool askToken) {
    // The first button is what Enter presses: one that does nothing, lest it be that of some row.
    std::string html = fmt::format(
        "<form id=\"acts\" method=\"post\"><button disabled hidden></button>"
        "<input type=\"hidden\" name=\"back\" value=\"{}\"><input type=\"hidden\" name=\"guard\" value=\"{}\">",
        Escape(back), Escape(guard));
    if (askToken) {
        html +=
            "<label>Token, for the buttons below <input type=\"password\" name=\"token\" required "
            "autocomplete=\"current-password\"></label>";
    }
    return html + "</form>\n";
}

std::string ActButton(std::string_view action, std::initializer_list<std::pair<std::string_view, std::string>> fields,
                      std::string_view button, std::string_view what) {
    std::string target(action);
    for (const auto& [name, value] : fields) {
        target += fmt::format("{}{}={}", target.size() == action.size() ? "?" : "&", name, PercentEncode(value));
    }
    return fmt::format("<button {} formaction=\"{}\" aria-label=\"{}: {}\">{}</button> ", kOfActForm, Escape(target),
                       Escape(button), Escape(what), Escape(button));
}

std::string TimeText(std::int64_t milliseconds) {
    if (milliseconds == 0) {
        return {};
    }
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(static_cast<std::time_t>(milliseconds / 1000)));
}

std::string DigitsText(const std::string& digits) {
    const bool isTime = digits.size() == 14;
    if ((digits.size() != 8 && !isTime) || digits.find_first_not_of("0123456789") != digits.npos) {
        return digits;
    }
    const std::string day = digits.substr(0, 4) + "-" + digits.substr(4, 2) + "-" + digits.substr(6, 2);
    return isTime ? day + " " + digits.substr(8, 2) + ":" + digits.substr(10, 2) + ":" + digits.substr(12, 2) : day;
}

}  // namespace ZELPC
