#pragma once

#include <string>

#include "common/CInstance.h"
#include "config/CDeviceInfo.h"
#include "platform/Log.h"
#include "platform/Service.h"

/// The service: brings everything up in order and then leaves the work to the worker threads. There is no orderly
/// shutdown; the process ends by a signal or where a part of it cannot go on, and is started again.
class ZELRmUp {
public:
    static ZELRmUp* GetInstance();
    static void DestroyInstance();

    ZELRmUp();
    ZELRmUp(const ZELRmUp&) = delete;
    ZELRmUp& operator=(const ZELRmUp&) = delete;
    ~ZELRmUp();

    /// The start-up sequence; then sleeps. Does not return. The arguments of the program mean nothing to it.
    int Run(int argc, char* argv[]);

private:
    void InstallSignalHandlers();
    void PrintBanner();
    void StartUDSServer();
    void StartUDPServer();
    void StartTCPListener();
    void StartConnectionMonitor();

    /// Starts a thread that nobody waits for; the heading stands before its log lines. Throws WorkException*.
    void StartDetached(QENFx::Service::Thread& thread, const std::string& heading, const char* name);

    static void SignalHandler(int number);

    static CInstance<ZELRmUp> instance_;

    QENFx::Log::Logger* logger_;
    QENFx::Log::FileLog* log_;
    CDeviceInfo* device_ = nullptr;
};
