#include "store/ResultIdentity.h"

#include <openssl/evp.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace ZELPC {

namespace {

/// Where field 7 of the header begins and ends; both at its end when there is no such field.
std::pair<std::size_t, std::size_t> BuildTime(std::string_view text) {
    const std::size_t end = std::min(text.find('\r'), text.size());
    std::size_t begin = 0;
    constexpr int kSeparatorsBefore = 6;  // MSH-1 is a separator itself
    for (int count = 0; count < kSeparatorsBefore; ++count) {
        begin = text.find('|', begin);
        if (begin >= end) {
            return {end, end};
        }
        ++begin;
    }
    return {begin, std::min(text.find('|', begin), end)};
}

}  // namespace

std::string WhyNoResult(std::string_view text) {
    if (text.empty()) {
        return "empty: the analyzer could not read its tables";
    }
    if (!text.starts_with("MSH|")) {
        return "not an HL7 message";
    }
    const std::size_t header = text.find('\r');
    if (header == text.npos || text.find_first_not_of("\r\n ", header) == text.npos) {
        return "a header alone: the measurement is missing in the analyzer's database";
    }
    return {};
}

std::string ResultDigest(std::string_view text) {
    const auto [begin, end] = BuildTime(text);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (context == nullptr || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1 ||
        EVP_DigestUpdate(context.get(), text.data(), begin) != 1 ||
        EVP_DigestUpdate(context.get(), text.data() + end, text.size() - end) != 1 ||
        EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) {
        throw std::runtime_error("SHA-256 is not available");
    }
    return {reinterpret_cast<const char*>(digest.data()), size};
}

}  // namespace ZELPC
