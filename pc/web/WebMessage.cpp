#include "web/WebMessage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace ZELPC {

namespace {

constexpr std::size_t kMostFields = 64;

int HexDigit(char character) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::size_t digit = kDigits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(character))));
    return digit == kDigits.npos ? -1 : static_cast<int>(digit);
}

}  // namespace

const std::string& WebRequest::Get(std::string_view name) const {
    static const std::string kNone;
    for (const WebFields* fields : {&query, &form}) {
        if (const auto field = fields->find(name); field != fields->end()) {
            return field->second;
        }
    }
    return kNone;
}

WebResponse WebResponse::Text(int status, std::string text) {
    WebResponse response;
    response.status = status;
    response.contentType = "text/plain; charset=utf-8";
    response.body = std::move(text);
    return response;
}

WebResponse WebResponse::Json(int status, std::string json) {
    WebResponse response;
    response.status = status;
    response.contentType = "application/json";
    response.body = std::move(json);
    return response;
}

WebResponse WebResponse::SeeOther(const std::string& path) {
    WebResponse response = Text(303, "done\n");
    response.headers.emplace_back("Location", path);
    return response;
}

std::string PercentDecode(std::string_view text, bool plusIsBlank) {
    std::string decoded;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char character = text[position];
        if (character == '%' && position + 2 < text.size() && HexDigit(text[position + 1]) >= 0 &&
            HexDigit(text[position + 2]) >= 0) {
            decoded += static_cast<char>(HexDigit(text[position + 1]) * 16 + HexDigit(text[position + 2]));
            position += 2;
        } else {
            decoded += plusIsBlank && character == '+' ? ' ' : character;
        }
    }
    return decoded;
}

std::string PercentEncode(std::string_view text) {
    std::string encoded;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (std::isalnum(byte) != 0 || character == '-' || character == '_' || character == '.') {
            encoded += character;
        } else {
            encoded += fmt::format("%{:02X}", byte);
        }
    }
    return encoded;
}

WebFields ParseFields(std::string_view text) {
    WebFields fields;
    while (!text.empty() && fields.size() < kMostFields) {
        const std::string_view field = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(field.size() + 1, text.size()));
        const std::size_t equals = std::min(field.find('='), field.size());
        const std::string_view value = field.substr(std::min(equals + 1, field.size()));
        fields.emplace(PercentDecode(field.substr(0, equals), true), PercentDecode(value, true));
    }
    return fields;
}

}  // namespace ZELPC
