#pragma once

#include <string>

#include "platform/Object.h"

namespace QENFx::Common {

/// Text as the framework's interfaces take it. Used by one thread at a time.
class String {
public:
    String();
    String(const char* text) : String() { Format("%s", text); }
    String(const std::string& text) : String(text.c_str()) {}
    String(const String&) = delete;
    String& operator=(const String&) = delete;
    ~String();

    /// Replaces the text by the printf-style rendering; any length.
    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Never null; valid until the text is changed or destroyed.
    const char* c_str() const;

private:
    Fields<std::string, 128> fields_;
};

/// A software version: major, minor, release patch and build number, compared in this order. It is copied by way of its
/// text, so that nothing is asked of the framework that it is not known to offer.
class Version {
public:
    Version() : Version("0.00.00.0000") {}
    Version(const Version& other) : Version(other.getVersion()) {}

    /// Four decimal numbers of at most nine digits, separated by dots. Any other text reads as 0.00.00.0000.
    explicit Version(const char* text);
    ~Version();

    Version& operator=(const char* text);
    Version& operator=(const Version& other) { return this == &other ? *this : *this = other.getVersion(); }

    /// The form "1.02.03.0004". Valid as long as the version is neither changed nor destroyed.
    const char* getVersion() const;

    bool operator<(const Version& other) const;
    bool operator<=(const Version& other) const;
    bool operator!=(const Version& other) const;
    bool operator==(const Version& other) const { return !(*this != other); }

private:
    struct Content;
    Fields<Content, 128> fields_;
};

}  // namespace QENFx::Common
