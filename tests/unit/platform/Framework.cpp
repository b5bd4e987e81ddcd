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

namespace Log {

class FileLog {
public:
    Large large;
    virtual void WriteError(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        Note("WriteError %s", Text(format, arguments).c_str());
        va_end(arguments);
    }
    virtual void WriteInfo(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        Note("WriteInfo %s", Text(format, arguments).c_str());
        va_end(arguments);
    }
    virtual ~FileLog() = default;
};

class Logger {
public:
    [[gnu::used]] static Logger* getLogger() {
        static Logger logger;
        return &logger;
    }
    [[gnu::used]] static void DestroyLogger() { Note("DestroyLogger"); }
    virtual ~Logger() = default;
    virtual FileLog* getLog(const char* name) {
        Note("getLog %s", name);
        return &log;
    }
    FileLog log;
};

}  // namespace Log

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

namespace Convertor::CRC16 {

[[gnu::used]] std::uint16_t crc16(const std::uint8_t* data, unsigned length);
std::uint16_t crc16(const std::uint8_t* data, unsigned length) {
    return static_cast<std::uint16_t>(data[0] * 0x100 + length);
}

}  // namespace Convertor::CRC16

namespace Xml {

class Attribute {
public:
    virtual ~Attribute() = default;
    virtual const char* getValue() const { return name; }
    const char* name = "";
};

class NodeList;

class Node {
public:
    virtual ~Node() = default;
    virtual const Attribute* getAttributeByName(const char* name) const {
        attribute.name = name;
        return &attribute;
    }
    virtual const NodeList* getNodeListByName(const char* name) const {
        Note("Node::getNodeListByName %s", name);
        return list;
    }
    const NodeList* list = nullptr;
    mutable Attribute attribute;
};

class NodeList {
public:
    virtual const Node* getNode(int index) const {
        Note("getNode %d", index);
        return &node;
    }
    virtual int getNodeCount() const { return 5; }
    virtual ~NodeList() = default;
    Node node;
};

class XmlDocument {
public:
    XmlDocument();
    virtual ~XmlDocument() { Note("~XmlDocument"); }
    virtual bool LoadXML(const char* text) {
        Note("LoadXML %s", text);
        return true;
    }
    virtual const NodeList* getNodeListByName(const char* name) const {
        Note("XmlDocument::getNodeListByName %s", name);
        return &list;
    }
    Large large;
    NodeList list;
};

XmlDocument::XmlDocument() {
    list.node.list = &list;
}

}  // namespace Xml

}  // namespace Common

namespace Data::Collection {

class Row {
public:
    virtual bool exists(const char* column) const { return *column == 'c'; }
    virtual double getDouble(const char* column) const { return *column; }
    virtual const char* getString(const char* column) const { return column; }
    virtual ~Row() = default;
};

class Table {
public:
    virtual const Row* getCurrent() const { return &row; }
    virtual bool MoveNext() {
        Note("MoveNext");
        return true;
    }
    virtual ~Table() { Note("~Table"); }
    virtual void Reset() { Note("Reset"); }
    Large large;
    Row row;
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
