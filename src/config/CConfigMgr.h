#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/CInstance.h"
#include "common/CMutex.h"
#include "config/ConfigKey.h"
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
    std::string GetContents(int index) const;

    /// The value as a decimal number; the setting's default when it is not a number from 0 to 65535.
    std::uint16_t GetNumber(int index) const;

    /// The first character of the value; NUL when the value is empty.
    char GetFirstChar(int index) const;

    /// Writes the value. A failure is logged; the caller is not told.
    void SetContents(int index, const std::string& value);
    void SetContents(int index, const char* value);
    void SetContents(int index, char value);
    void SetContents(int index, int value);

    /// Makes sure at start-up that the program's own file at `path` is there and its own, and points it at the default
    /// update server. Ends the process when the file system does not let it.
    void CheckConfigFile(const char* path);

private:
    static std::unique_ptr<QENFx::Data::Properties::FileProperty> Open(const char* path);
    void MakeConfigFile(const char* path);
    [[noreturn]] void Abandon(const char* path);

    static CInstance<CConfigMgr> instance_;

    QENFx::Log::FileLog* log_;
    CMutex writeMutex_;
};
