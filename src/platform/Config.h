#pragma once

#include <string>

#include "platform/Object.h"

namespace QENFx::Data::Properties {

/// The keys and values of one settings file, as they were when it was opened. Used by one thread at a time; several
/// objects may be open on one file. Its virtual operations are called by
/// their place: destructor, deleting destructor, one for others, set, get. Their names are free.
class FileProperty {
public:
    FileProperty() = default;
    FileProperty(const FileProperty&) = delete;
    FileProperty& operator=(const FileProperty&) = delete;
    virtual ~FileProperty() = default;

    /// Keeps the place of an operation that the service does not use.
    virtual void forOthers() = 0;

    /// Changes the object alone. Whether the file can hold the value shows in Update.
    virtual void setValue(const char* key, const char* value) = 0;

    /// The value, or the empty text for a key that the file does not hold. Valid until the next call on this object.
    virtual const char* getValue(const char* key) = 0;

    /// Writes the keys set since the file was opened, and only those, into the file as it is now. The file is replaced
    /// as a whole or not at all, and lasts when this returns. Throws ConfigurationException* when it cannot be written,
    /// or a key or value fits no line; the file is then as it was. Two threads that do it at once may undo one another.
    void Update();
};

}  // namespace QENFx::Data::Properties

namespace QENFx::Config {

/// Thrown by pointer; whoever catches it deletes it.
class ConfigurationException : public DeletedUnsized {
public:
    explicit ConfigurationException(const std::string& message);
    ConfigurationException(const ConfigurationException&) = delete;
    ConfigurationException& operator=(const ConfigurationException&) = delete;
    ~ConfigurationException();

    /// For the log; valid as long as the exception.
    const char* GetMessage() const;

private:
    std::string message_;
};

/// How a settings file is opened.
inline constexpr int kOpenReadOnly = 0x189D;
inline constexpr int kOpenReadWrite = 0x189E;

class ConfigurationManager {
public:
    /// The process-wide manager, made on first use; never null. From any thread, as is Open.
    static ConfigurationManager* GetManager();

    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;

    /// Opens an existing file; the caller owns the result. Throws ConfigurationException* when there is no such file or
    /// it cannot be read. The first of the manager's virtual operations, so none may be declared before it, also no
    /// destructor.
    virtual Data::Properties::FileProperty* Open(const char* path, int mode) = 0;

protected:
    ConfigurationManager() = default;
    ~ConfigurationManager() = default;
};

}  // namespace QENFx::Config
