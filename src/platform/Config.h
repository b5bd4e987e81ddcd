#pragma once

#include <string>

namespace QENFx::Data::Properties {

/// The keys and values of one settings file, as they were when it was opened.
class FileProperty {
public:
    FileProperty() = default;
    FileProperty(const FileProperty&) = delete;
    FileProperty& operator=(const FileProperty&) = delete;
    virtual ~FileProperty() = default;

    virtual void setValue(const char* key, const char* value) = 0;

    /// The value, or the empty text for a key that the file does not hold. Valid until the next call on this object.
    virtual const char* getValue(const char* key) = 0;

    /// Writes the keys set since the file was opened, and only those, into the file as it is now. The file is replaced
    /// as a whole or not at all. Throws ConfigurationException*.
    virtual void Update() = 0;
};

}  // namespace QENFx::Data::Properties

namespace QENFx::Config {

/// Thrown by pointer; whoever catches it deletes it.
class ConfigurationException {
public:
    explicit ConfigurationException(std::string message) : message_(std::move(message)) {}
    const char* GetMessage() const { return message_.c_str(); }

private:
    std::string message_;
};

/// How a settings file is opened.
inline constexpr int kOpenReadOnly = 0x189D;
inline constexpr int kOpenReadWrite = 0x189E;

class ConfigurationManager {
public:
    static ConfigurationManager* GetManager();

    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;
    virtual ~ConfigurationManager() = default;

    /// Opens an existing file; the caller owns the result. Throws ConfigurationException* when there is no such file or
    /// it cannot be read.
    virtual Data::Properties::FileProperty* Open(const char* path, int mode) = 0;

protected:
    ConfigurationManager() = default;
};

}  // namespace QENFx::Config
