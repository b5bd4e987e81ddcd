#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace HL7v251::Base {

/// Appends to a text. Faster than the text's own append, since most of what a message consists of is single separators
/// and short values. The text is complete when the writer is gone.
class HL7Writer {
public:
    static constexpr std::size_t kLongestRun = 72;

    explicit HL7Writer(std::string& out) : out_(out), at_(buffer_) {}
    ~HL7Writer() { Flush(); }
    HL7Writer(const HL7Writer&) = delete;
    HL7Writer& operator=(const HL7Writer&) = delete;

    void Put(char c) {
        if (Left() == 0) {
            Flush();
        }
        *at_++ = c;
    }

    /// `count` times `c`; `count` is at most kLongestRun.
    void PutRun(char c, std::size_t count) {
        if (Left() < kLongestRun) {
            Flush();
        }
        at_ = Run(at_, c, count);
    }

    void Put(std::string_view text) { PutBehind('\0', 0, text); }

    /// `text` behind `count` times `c`; `count` is at most kLongestRun.
    [[gnu::always_inline]] void PutBehind(char c, std::size_t count, std::string_view text) {
        if (Left() < kLongestRun + text.size()) {
            PutRun(c, count);
            PutLong(text);
            return;
        }
        // In one go: each time the position goes through memory costs as much as a short copy.
        char* const at = Run(at_, c, count);
        Copy(at, text.data(), text.size());
        at_ = at + text.size();
    }

    /// Copies a text to where no part of it is. Two moves that may overlap cover any short length: most values are
    /// short, and a call for each takes longer.
    static void Copy(char* to, const char* from, std::size_t size) {
        if (size > 32) {
            std::memcpy(to, from, size);
        } else if (size >= 16) {
            std::memcpy(to, from, 16);
            std::memcpy(to + size - 16, from + size - 16, 16);
        } else if (size >= 8) {
            std::memcpy(to, from, 8);
            std::memcpy(to + size - 8, from + size - 8, 8);
        } else if (size >= 4) {
            std::memcpy(to, from, 4);
            std::memcpy(to + size - 4, from + size - 4, 4);
        } else if (size > 0) {
            to[0] = from[0];
            to[size / 2] = from[size / 2];
            to[size - 1] = from[size - 1];
        }
    }

    /// The length of the text so far.
    std::size_t Size() const { return out_.size() + Buffered(); }

    /// The last character of a text that is not empty.
    char Back() const { return Buffered() > 0 ? at_[-1] : out_.back(); }

    /// Removes every `c` from the end, but leaves `size` characters.
    void Trim(char c, std::size_t size) {
        if (Buffered() > 0 && at_[-1] != c) {
            return;
        }
        while (Size() > size && Back() == c) {
            RemoveLast();
        }
    }

private:
    std::size_t Buffered() const { return static_cast<std::size_t>(at_ - buffer_); }
    std::size_t Left() const { return sizeof buffer_ - Buffered(); }

    // Writes up to kLongestRun characters, of which `count` are meant to stay; returns the end of these.
    static char* Run(char* at, char c, std::size_t count) {
        std::memset(at, c, 8);
        if (count > 8) {
            std::memset(at + 8, c, kLongestRun - 8);
        }
        return at + count;
    }

    void Flush();
    void PutLong(std::string_view text);
    void RemoveLast();

    std::string& out_;
    char* at_;
    // Holds a whole message as a rule, so that the text grows once.
    char buffer_[8192];
};

}  // namespace HL7v251::Base
