#include "config/CConfigMgr.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/FrameworkError.h"
#include "common/ProcessEnd.h"
#include "common/Shell.h"

using QENFx::Config::ConfigurationException;
using QENFx::Config::ConfigurationManager;
using QENFx::Data::Properties::FileProperty;

namespace {

constexpr char kGetTag[] = "[CConfigMgr::GetContents]";
constexpr char kComment[] = "ZELRmUp Configuration File";

struct Setting {
    ConfigKey index;
    const char* key;
    const char* defaultValue;  // null: never written by this program
};

constexpr Setting kSettings[] = {
    {ConfigKey::kZELRMTCPPort, "ZELRMTCPPort", "9034"},
    {ConfigKey::kZELRMUDPPort, "ZELRMUDPPort", "9035"},
    {ConfigKey::kPCIPAddress, "PCIPAddress", kNoPCAddress},
    {ConfigKey::kPCTCPPort, "PCTCPPort", "9034"},
    {ConfigKey::kPCUDPPort, "PCUDPPort", "9036"},
    {ConfigKey::kPCSWName, "PCSWName", ""},
    {ConfigKey::kPCPeerID, "PCPeerID", "0"},
    {ConfigKey::kIPChanged, "IPChanged", "0"},
    {ConfigKey::kBootPartitions, "BootPartitions", "11"},
    {ConfigKey::kUpdateImages, "UpdateImages", "0"},
    {ConfigKey::kUpdateURL, "UpdateURL", ZELRM_UPDATE_HOST},
    {ConfigKey::kAdminPW, "AdminPW", nullptr},
    {ConfigKey::kReferenceRangeDisable, "ReferenceRangeDisable", nullptr},
};

const Setting* FindSetting(ConfigKey index) {
    const auto* found = std::ranges::find(kSettings, index, &Setting::index);
    return found == std::end(kSettings) ? nullptr : found;
}

/// An index that names no setting reads as the empty key, which no file holds.
const char* KeyOf(ConfigKey index) {
    const Setting* setting = FindSetting(index);
    return setting == nullptr ? "" : setting->key;
}

const char* FileOf(ConfigKey index) {
    if (index < ConfigKey::kAdminPW) {
        return kOwnConfigFile;
    }
    return index < ConfigKey::kReferenceRangeDisable ? kSystemConfigFile : kApplicationConfigFile;
}

bool ParsePort(const char* text, std::uint16_t& number) {
    const char* end = text + strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    return error == std::errc() && rest == end && rest != text;
}

/// The setting's default for a text that is no port.
std::uint16_t PortOf(ConfigKey index, const std::string& text) {
    std::uint16_t number = 0;
    if (ParsePort(text.c_str(), number)) {
        return number;
    }
    const Setting* setting = FindSetting(index);
    if (setting != nullptr && setting->defaultValue != nullptr) {
        ParsePort(setting->defaultValue, number);
    }
    return number;
}

}  // namespace

CInstance<CConfigMgr> CConfigMgr::instance_;

CConfigMgr* CConfigMgr::GetInstance() {
    return instance_.Get();
}

void CConfigMgr::DestroyInstance() {
    instance_.Destroy();
}

CConfigMgr::CConfigMgr()
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)),
      writeMutex_(log_, "[CConfigMgr::CConfigMgr]", "[CConfigMgr::~CConfigMgr]") {}

std::unique_ptr<FileProperty> CConfigMgr::Open(const char* path) {
    return std::unique_ptr<FileProperty>(ConfigurationManager::GetManager()->Open(path, QENFx::Config::kOpenReadWrite));
}

std::string CConfigMgr::GetContents(ConfigKey index) const {
    const CTaggedLog log(log_, kGetTag);
    {
        const std::lock_guard lock(unwrittenMutex_);
        if (const auto value = unwritten_.find(index); value != unwritten_.end()) {
            return value->second;
        }
    }
    try {
        return Open(FileOf(index))->getValue(KeyOf(index));
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
        return {};
    }
}

std::uint16_t CConfigMgr::GetNumber(ConfigKey index) const {
    return PortOf(index, GetContents(index));
}

char CConfigMgr::GetFirstChar(ConfigKey index) const {
    return GetContents(index).c_str()[0];
}

bool CConfigMgr::Write(const Values& values) {
    const CTaggedLog log(log_, "[CConfigMgr::SetContents]");
    try {
        const auto file = Open(FileOf(values.begin()->first));
        for (const auto& [index, value] : values) {
            file->setValue(KeyOf(index), value.c_str());
        }
        const std::lock_guard lock(writeMutex_);
        file->Update();
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
        return false;
    }
    const std::lock_guard lock(unwrittenMutex_);
    for (const auto& [index, value] : values) {
        unwritten_.erase(index);
    }
    return true;
}

void CConfigMgr::SetContents(ConfigKey index, const std::string& value) {
    Write({{index, value}});
}

void CConfigMgr::SetContents(ConfigKey index, const char* value) {
    SetContents(index, std::string(value));
}

void CConfigMgr::SetContents(ConfigKey index, char value) {
    SetContents(index, std::string(1, value));
}

void CConfigMgr::SetContents(ConfigKey index, int value) {
    SetContents(index, std::to_string(value));
}

RegisteredPC CConfigMgr::GetRegisteredPC() const {
    const CTaggedLog log(log_, kGetTag);
    std::unique_lock lock(unwrittenMutex_);
    Values values = unwritten_;
    lock.unlock();
    try {
        const auto file = Open(kOwnConfigFile);
        for (const ConfigKey index : {ConfigKey::kPCIPAddress, ConfigKey::kPCTCPPort, ConfigKey::kPCUDPPort,
                                      ConfigKey::kPCSWName, ConfigKey::kPCPeerID}) {
            values.try_emplace(index, file->getValue(KeyOf(index)));
        }
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
    }
    return {values[ConfigKey::kPCIPAddress], PortOf(ConfigKey::kPCTCPPort, values[ConfigKey::kPCTCPPort]),
            PortOf(ConfigKey::kPCUDPPort, values[ConfigKey::kPCUDPPort]), values[ConfigKey::kPCSWName],
            values[ConfigKey::kPCPeerID].c_str()[0]};
}

void CConfigMgr::Store(const Values& values) {
    if (!Write(values)) {
        const std::lock_guard lock(unwrittenMutex_);
        for (const auto& [index, value] : values) {
            unwritten_.insert_or_assign(index, value);
        }
    }
}

void CConfigMgr::SetRegisteredPC(const RegisteredPC& pc) {
    Store({{ConfigKey::kPCIPAddress, pc.address},
           {ConfigKey::kPCTCPPort, std::to_string(pc.tcpPort)},
           {ConfigKey::kPCUDPPort, std::to_string(pc.udpPort)},
           {ConfigKey::kPCSWName, pc.name},
           {ConfigKey::kPCPeerID, std::string(1, pc.peerID)},
           {ConfigKey::kIPChanged, "0"}});
}

void CConfigMgr::ForgetRegisteredPC() {
    Store({{ConfigKey::kPCIPAddress, kNoPCAddress},
           {ConfigKey::kPCUDPPort, "0"},
           {ConfigKey::kPCSWName, ""},
           {ConfigKey::kPCPeerID, "0"}});
}

void CConfigMgr::CheckConfigFile(const char* path) {
    const CTaggedLog log(log_, "[CConfigMgr::CheckConfigFile]");
    try {
        if (access(path, F_OK) == 0) {
            // The update server is the product's own: a start puts it back, whatever was tried on the device.
            const auto file = Open(path);
            file->setValue(KeyOf(ConfigKey::kUpdateURL), FindSetting(ConfigKey::kUpdateURL)->defaultValue);
            file->Update();
            if (strcmp(file->getValue("Comment"), kComment) != 0) {
                RunShell((std::string("rm -f ") + path).c_str());
            }
        }
        if (access(path, F_OK) != 0) {
            log.WriteError("Cannot find config file(%s), Make now", path);
            MakeConfigFile(path);
            log.WriteInfo("Configuration file initialized");
        }
        log.WriteInfo("Check config file(%s) OK", path);
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
        Abandon(path);
    } catch (const std::exception& exception) {
        log.WriteError("Exception: %s", exception.what());
        log.WriteError("File system has some problem");
        Abandon(path);
    }
}

void CConfigMgr::MakeConfigFile(const char* path) {
    std::ofstream(path, std::ios::trunc) << "Comment=" << kComment << ";\n";
    const auto file = Open(path);
    for (const Setting& setting : kSettings) {
        if (setting.defaultValue != nullptr) {
            file->setValue(setting.key, setting.defaultValue);
        }
    }
    file->Update();
}

void CConfigMgr::Abandon(const char* path) {
    const CTaggedLog log(log_, "[CConfigMgr::CheckConfigFile]");
    printf("ZELRmUp Shutdown\n");
    if (remove(path) != 0) {
        log.WriteError("%s remove fail: %s", path, strerror(errno));
    }
    EndProcess();
}
