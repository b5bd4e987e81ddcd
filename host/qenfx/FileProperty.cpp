#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "files/Files.h"
#include "platform/Config.h"
#include "qenfx/Blanks.h"
#include "qenfx/Settings.h"

namespace QENFx::Config {

namespace {

/// Far above any settings file; what is larger is not one.
constexpr std::size_t kMaxFileSize = 1024 * 1024;

/// Turns the failures of file access into the exception of this interface.
template <typename Work>
auto WithConfigurationException(Work work) {
    try {
        return work();
    } catch (const std::system_error& error) {
        throw new ConfigurationException(error.what());
    }
}

class SettingsFile final : public Data::Properties::FileProperty {
public:
    SettingsFile(const char* path, bool writable)
        : path_(path), writable_(writable), content_(Host::ReadWholeFile(path, kMaxFileSize)) {}

    void forOthers() override {}

    void setValue(const char* key, const char* value) override {
        const std::string_view name = Host::TrimBlanks(key);
        if (name.empty()) {
            return;
        }
        if (const auto change = FindChange(name); change != changes_.end()) {
            change->value = value;
        } else {
            changes_.push_back({std::string(name), value});
        }
    }

    const char* getValue(const char* key) override {
        const std::string_view name = Host::TrimBlanks(key);
        if (const auto change = FindChange(name); change != changes_.end()) {
            return change->value.c_str();
        }
        value_ = Host::FindSetting(content_, name).value_or("");
        return value_.c_str();
    }

    void Write() {
        if (!writable_) {
            throw new ConfigurationException("write " + path_ + ": opened for reading only");
        }
        // A value of several lines would come back as other keys.
        for (const auto& [key, value] : changes_) {
            if (key.find_first_of("=\r\n") != std::string::npos || value.find_first_of("\r\n") != std::string::npos) {
                throw new ConfigurationException("write " + path_ + ": a key or value that fits no line");
            }
        }
        WithConfigurationException([this] { Merge(); });
        content_ = Host::MergeSettings(content_, std::exchange(changes_, {}));
    }

private:
    std::vector<Host::SettingsChange>::iterator FindChange(std::string_view key) {
        return std::find_if(changes_.begin(), changes_.end(), [=](const auto& change) { return change.key == key; });
    }

    void Merge() const {
        // Through a symbolic link, the file that it leads to is replaced and not the link.
        const std::filesystem::path file = std::filesystem::canonical(path_);
        const Host::DirectoryLock lock(file.parent_path());
        const std::string content = Host::ReadWholeFile(file, kMaxFileSize);
        const std::string merged = Host::MergeSettings(content, changes_);
        if (merged.size() > kMaxFileSize) {
            throw std::system_error(EFBIG, std::generic_category(), "write " + path_);
        }
        // Keys are set to what they are at every start; that need not wear the flash.
        if (merged != content) {
            Host::ReplaceFile(lock, file, merged);
        }
    }

    const std::string path_;
    const bool writable_;
    std::string content_;  // as the file was when it was opened, with what was written since
    std::string value_;    // handed out last
    std::vector<Host::SettingsChange> changes_;
};

class SettingsFiles final : public ConfigurationManager {
public:
    Data::Properties::FileProperty* Open(const char* path, int mode) override {
        if (mode != kOpenReadOnly && mode != kOpenReadWrite) {
            throw new ConfigurationException("open " + std::string(path) + ": unknown mode");
        }
        return WithConfigurationException([&] { return new SettingsFile(path, mode == kOpenReadWrite); });
    }
};

}  // namespace

ConfigurationException::ConfigurationException(const std::string& message) : message_(message) {}

ConfigurationException::~ConfigurationException() = default;

const char* ConfigurationException::GetMessage() const {
    return message_.c_str();
}

ConfigurationManager* ConfigurationManager::GetManager() {
    static SettingsFiles* const manager = new SettingsFiles;
    return manager;
}

}  // namespace QENFx::Config

void QENFx::Data::Properties::FileProperty::Update() {
    static_cast<QENFx::Config::SettingsFile*>(this)->Write();
}
