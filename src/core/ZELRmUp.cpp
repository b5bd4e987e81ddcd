#include "core/ZELRmUp.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "config/CConfigMgr.h"
#include "core/Routes.h"
#include "net/CConnectionMonitor.h"
#include "net/CTCPListener.h"
#include "net/CUDPServer.h"
#include "net/CUDSMsg.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/update/XmlBank.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CTCPListener;
using RMUP::Net::CUDPServer;
using RMUP::Net::CUDSServer;

namespace {

constexpr char kBuildDate[] = __DATE__;
constexpr char kBuildTime[] = __TIME__;

/// Sleeps while the signals that end the process may come.
void SleepOpen(unsigned seconds) {
    const CEndingSignalsWindow window;
    sleep(seconds);
}

}  // namespace

CInstance<ZELRmUp> ZELRmUp::instance_;

namespace {

// Made before main runs, so that the log is there before anything else writes to it.
[[maybe_unused]] const ZELRmUp* const kEarlyInstance = ZELRmUp::GetInstance();

}  // namespace

ZELRmUp* ZELRmUp::GetInstance() {
    return instance_.Get();
}

void ZELRmUp::DestroyInstance() {
    instance_.Destroy();
}

ZELRmUp::ZELRmUp() : logger_(QENFx::Log::Logger::getLogger()), log_(logger_->getLog(kLogName)) {}

ZELRmUp::~ZELRmUp() {
    QENFx::Log::Logger::DestroyLogger();
    CConfigMgr::DestroyInstance();
    CUDSServer::DestroyInstance();
    CUDPServer::DestroyInstance();
}

int ZELRmUp::Run(int /*argc*/, char* /*argv*/[]) {
    InstallSignalHandlers();
    BlockEndingSignals();
    PrintBanner();
    CConfigMgr::GetInstance()->CheckConfigFile(kOwnConfigFile);
    device_ = CDeviceInfo::GetInstance();
    ConnectRoutes();

    StartUDSServer();
    device_->Initialize();
    RMUP::Process::XmlBank::NoteRunning();
    CUDSServer::GetInstance()->Serve();
    StartUDPServer();
    StartTCPListener();
    StartConnectionMonitor();

    for (;;) {
        SleepOpen(60);
    }
}

void ZELRmUp::InstallSignalHandlers() {
    // SIGINT is left to end the process at once, as a developer at a terminal expects. SIGKILL cannot be caught; it
    // stands here so that the list is that of all signals that are known to end the service.
    for (const int number : {SIGHUP, SIGQUIT, SIGABRT, SIGKILL, SIGPIPE, SIGTERM}) {
        signal(number, &ZELRmUp::SignalHandler);
    }
}

void ZELRmUp::SignalHandler(int number) {
    // Written past stdio, whose buffer another thread may hold.
    char text[64] = "ZELRmUp received signal(#";
    char* end = std::to_chars(text + strlen(text), text + sizeof(text) - 2, number).ptr;
    *end++ = ')';
    *end++ = '\n';
    const ssize_t written = write(STDOUT_FILENO, text, static_cast<std::size_t>(end - text));
    (void)written;  // there is nobody left to tell
    EndProcess();
}

void ZELRmUp::PrintBanner() {
    log_->WriteInfo("*****************************************");
    log_->WriteInfo("*             ZELRmUp START             *");
    log_->WriteInfo("*     Build:  %s  %s     *", kBuildDate, kBuildTime);
    log_->WriteInfo("*****************************************");
    printf("***** ZELRmUp START Build: %s %s\n", kBuildDate, kBuildTime);
    fflush(stdout);
}

void ZELRmUp::StartUDSServer() {
    static constexpr char kTag[] = "[ZELRmUp::StartUDSServer]";
    constexpr int kAttempts = 4;

    CUDSServer* server = CUDSServer::GetInstance();
    int failures = 0;
    while (server->ServerOpen(RMUP::Net::kUDSPath) != 0) {
        log_->WriteInfo("%s[%c] Retry to open UDS server", kTag, device_->GetStatusChar());
        SleepOpen(1);
        if (++failures == kAttempts) {
            log_->WriteError("%s[%c] Server open failed, program exit", kTag, device_->GetStatusChar());
            CUDSServer::DestroyInstance();
            EndProcess();
        }
    }

    StartDetached(*server, std::string(kTag) + "[" + device_->GetStatusChar() + "]", "UDS server");
    server->WaitAnnounced();

    CUDSMsg notice;
    const auto packet = notice.GetSendPacket(RMUP::Net::UDSMessageId::kStarted, {});
    const int length = static_cast<int>(packet.size());
    const int sent = server->SendMessage(packet);
    if (sent != length) {
        log_->WriteError("%s[%c] Message send failed(%d/%d bytes sended)", kTag, device_->GetStatusChar(), sent,
                         length);
    }
    log_->WriteInfo("%s[%c] Send UDS to inform ZELRmUp start", kTag, device_->GetStatusChar());
    notice.WritePacketLog();
}

void ZELRmUp::StartUDPServer() {
    StartDetached(*CUDPServer::GetInstance(), "[ZELRmUp::StartUDPServer]", "UDP server");
}

void ZELRmUp::StartTCPListener() {
    StartDetached(*CTCPListener::GetInstance(), "[ZELRmUp::StartTCPListener]", "TCP listener");
}

void ZELRmUp::StartConnectionMonitor() {
    StartDetached(*CConnectionMonitor::GetInstance(), "[ZELRmUp::StartConnectionMonitor]", "Connection monitor");
}

void ZELRmUp::StartDetached(QENFx::Service::Thread& thread, const std::string& heading, const char* name) {
    thread.Start();
    // Never so: failures are positive numbers. A thread that is not detached serves like any other.
    if (pthread_detach(thread.GetThreadId()) < 0) {
        log_->WriteError("%s %s thread detach fail: %s", heading.c_str(), name, strerror(errno));
    }
    log_->WriteInfo("%s %s thread start", heading.c_str(), name);
}
