// A second framework, which shares no declaration with src/platform and host/: as the device's own is known to be where
// it is known (the operations of settings files and threads by their place), and elsewhere unlike the stand-in, because
// nothing may hang on it: the objects are larger, and operations are virtual in an order of their own. Notes each call.
#include <pthread.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

std::string calls;

std::string Text(const char* format, va_list arguments) {
    char text[256];
    vsnprintf(text, sizeof(text), format, arguments);
    return text;
}

__attribute__((format(printf, 1, 2))) void Note(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    calls += Text(format, arguments) + "\n";
    va_end(arguments);
}

/// Fields that may not lie where the daemon has something else.
struct Large {
    std::array<unsigned char, 100> bytes = [] {
        std::array<unsigned char, 100> filled;
        filled.fill(0xAB);
        return filled;
    }();
};

}  // namespace

/// The calls since it was asked last.
extern "C" const char* TakeFrameworkCalls() {
    static std::string taken;
    taken.clear();
    taken.swap(calls);
    return taken.c_str();
}

namespace QENFx {

class Exception {
public:
    virtual ~Exception() = default;
    Large large;
};

namespace Data::Properties {

class FileProperty {
public:
    virtual ~FileProperty() { Note("~FileProperty"); }
    virtual void Third() { Note("FileProperty: for others"); }
    virtual void Fourth(const char* key, const char* value) { Note("FileProperty: set %s %s", key, value); }
    virtual const char* Fifth(const char* key) {
        Note("FileProperty: get %s", key);
        return "value";
    }
    [[gnu::used]] void Update() { Note("Update"); }
    Large large;
};

}  // namespace Data::Properties

namespace Config {

class ConfigurationException : public Exception {
public:
    ~ConfigurationException() override { Note("~ConfigurationException"); }
    [[gnu::used]] const char* GetMessage() const { return "no such file"; }
};

class ConfigurationManager {
public:
    [[gnu::used]] static ConfigurationManager* GetManager() {
        static ConfigurationManager manager;
        return &manager;
    }
    virtual Data::Properties::FileProperty* First(const char* path, int mode) {
        Note("ConfigurationManager: open %s %x", path, static_cast<unsigned>(mode));
        if (*path == '\0') {
            throw new ConfigurationException;
        }
        return new Data::Properties::FileProperty;
    }
    virtual ~ConfigurationManager() = default;
};

}  // namespace Config

namespace Service {

class WorkException : public Exception {
public:
    ~WorkException() override { Note("~WorkException"); }
    [[gnu::used]] const char* GetMessage() const { return "no thread"; }
};

class Thread {
public:
    Thread();
    virtual ~Thread();
    virtual int Run() = 0;
    [[gnu::used]] void Start() {
        if (started) {
            throw new WorkException;
        }
        started = true;
        Note("Run %d", Run());
        if (removed) {
            delete this;
        }
    }
    [[gnu::used]] void Stop() { stopped = true; }
    [[gnu::used]] bool IsStopped() const { return stopped; }
    [[gnu::used]] pthread_t GetThreadId() const { return pthread_self(); }

    Large large;
    bool started = false;
    bool stopped = false;
    bool removed = false;
};

Thread::Thread() = default;

Thread::~Thread() {
    Note("~Thread");
}

class ThreadMemoryRemover {
public:
    [[gnu::used]] static ThreadMemoryRemover* GetInstance() {
        static ThreadMemoryRemover remover;
        return &remover;
    }
    virtual ~ThreadMemoryRemover() = default;
    virtual void addThread(Thread* thread) { thread->removed = true; }
};

}  // namespace Service

namespace Common {

class String {
public:
    String();
    virtual ~String() = default;
    virtual void Format(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        text = Text(format, arguments);
        va_end(arguments);
    }
    int before = 7;
    std::string text;
};

String::String() = default;

class Version {
public:
    explicit Version(const char* text);
    virtual ~Version() = default;
    virtual Version& operator=(const char* given) {
        text = given;
        return *this;
    }
    virtual const char* getVersion() const { return text.c_str(); }
    virtual bool operator<(const Version& other) const { return text < other.text; }
    virtual bool operator<=(const Version& other) const { return text <= other.text; }
    virtual bool operator!=(const Version& other) const { return text != other.text; }
    std::array<int, 5> before{};
    std::string text;
};

Version::Version(const char* given) : text(given) {}

namespace Xml {

class XmlDocument {
public:
    XmlDocument();
    virtual ~XmlDocument() { Note("~XmlDocument"); }
    virtual bool LoadXML(const char* text) {
        Note("LoadXML %s", text);
        return true;
    }
    Large large;
};

XmlDocument::XmlDocument() = default;

}  // namespace Xml

}  // namespace Common

namespace Data::Collection {

class Table {
public:
    virtual void First() {}
    virtual bool MoveNext() {
        Note("MoveNext");
        return true;
    }
    virtual ~Table() { Note("~Table"); }
    virtual void Reset() { Note("Reset"); }
    Large large;
};

}  // namespace Data::Collection

namespace DB {

class DBException : public Exception {
public:
    ~DBException() override { Note("~DBException"); }
    [[gnu::used]] const char* GetMessage() const { return "locked"; }
};

class Sqlite {
public:
    Sqlite();
    virtual ~Sqlite() { Note("~Sqlite"); }
    virtual void Close() { throw new DBException; }
    virtual void Open(const Common::String& connectionString, int mode) {
        Note("Sqlite::Open %s %x", connectionString.text.c_str(), static_cast<unsigned>(mode));
    }
    virtual void Execute(const Common::String& statement, unsigned timeout) {
        Note("Execute %s %u", statement.text.c_str(), timeout);
    }
    virtual Data::Collection::Table* getTable(const Common::String& statement, unsigned timeout) {
        Note("getTable %s %u", statement.text.c_str(), timeout);
        return new Data::Collection::Table;
    }
    Large large;
};

Sqlite::Sqlite() = default;

}  // namespace DB

}  // namespace QENFx
