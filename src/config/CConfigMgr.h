#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/CInstance.h"
#include "common/CMutex.h"
#include "config/ConfigKey.h"
#include "config/RegisteredPC.h"
#include "platform/Config.h"
#include "platform/Log.h"

/// The program's own settings file; "config_zel.cfg" holds the analyzer's system settings, "config_zelapp.cfg" those of
/// ZELApp.
inline constexpr char kOwnConfigFile[] = "/data/config/config_zelrm.cfg";
inline constexpr char kSystemConfigFile[] = "/data/config/config_zel.cfg";
inline constexpr char kApplicationConfigFile[] = "/data/config/config_zelapp.cfg";

/// The one place through which settings are read and written. Callers name a setting by its index; the index decides
/// the file. Every call works on the file as it is at that moment, so any thread may call at any time.
class CConfigMgr {
public:
    static CConfigMgr* GetInstance();
    static void DestroyInstance();

    CConfigMgr();
    CConfigMgr(const CConfigMgr&) = delete;
    CConfigMgr& operator=(const CConfigMgr&) = delete;

    /// The value; the empty text when it is not set or the file cannot be read.
    std::string GetContents(ConfigKey index) const;

    /// The value as a decimal number; the setting's default when it is not a number from 0 to 65535.
    std::uint16_t GetNumber(ConfigKey index) const;

    /// The first character of the value; NUL when the value is empty.
    char GetFirstChar(ConfigKey index) const;

    /// Writes the value. A failure is logged; the caller is not told.
    void SetContents(ConfigKey index, const std::string& value);
    void SetContents(ConfigKey index, const char* value);
    void SetContents(ConfigKey index, char value);
    void SetContents(ConfigKey index, int value);

    /// The registered PC as it is at one moment. Without an address when the file cannot be read.
    RegisteredPC GetRegisteredPC() const;

    /// Whether the settings file can hold this peer ID.
    static bool IsStorablePeerID(std::uint8_t peerID) { return peerID != '\r' && peerID != '\n'; }

    /// Stores the registered PC by one write, and that it knows the device's address. What cannot be written is
    /// remembered, until it is written over or the process ends.
    void SetRegisteredPC(const RegisteredPC& pc);

    /// Stores by one write that no PC is registered; what cannot be written is remembered likewise.
    void ForgetRegisteredPC();

    /// Makes sure at start-up that the program's own file at `path` is there and its own, and points it at the default
    /// update server. Ends the process when the file system does not let it.
    void CheckConfigFile(const char* path);

private:
    using Values = std::map<ConfigKey, std::string>;

    /// Writes values of one file, all or none. Returns whether it did; a failure is logged.
    bool Write(const Values& values);

    /// Writes values of the program's own file, and remembers those that cannot be written.
    void Store(const Values& values);
    static std::unique_ptr<QENFx::Data::Properties::FileProperty> Open(const char* path);
    void MakeConfigFile(const char* path);
    [[noreturn]] void Abandon(const char* path);

    static CInstance<CConfigMgr> instance_;

    QENFx::Log::FileLog* log_;
    CMutex writeMutex_;
    mutable std::mutex unwrittenMutex_;
    Values unwritten_;  ///< behind unwrittenMutex_: what the file should hold and does not
};
