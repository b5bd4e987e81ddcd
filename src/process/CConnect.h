#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "config/ISession.h"
#include "config/RegisteredPC.h"
#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "platform/Log.h"
#include "process/update/ServiceContext.h"

/// The PC's requests that find, register and ask the analyzer, and the analyzer's own change of address. Made for one
/// message by the thread that received it. Operations return 0, or -1 when the request is refused or failed.
class CConnect {
public:
    using SessionPtr = std::shared_ptr<RMUP::Net::ISession>;

    explicit CConnect(const RMUP::Process::ServiceContext& service);

    /// Answers a scan at the address and port that the request names.
    [[nodiscard]] int ProcessScanDevice(CPCMsg& message);

    /// Makes the session's PC the registered one when the device is free and the administrator password is right.
    int ProcessRegisterDevice(const CPCMsg& message, const SessionPtr& session);

    int ProcessUnregisterDevice(const CPCMsg& message, const SessionPtr& session);

    /// Answers with the items that the request's mask asks for.
    int ProcessGetDeviceInfo(const CPCMsg& message, const SessionPtr& session);

    /// Acknowledges the registered PC's sign of life.
    [[nodiscard]] int ProcessDeviceInfoChangeNotify(const CPCMsg& message);

    /// Ends the process, so that the service that is started in its place works with the new address. A PC that is not
    /// on the USB link is told of the address by that service.
    [[noreturn]] void ProcessIPChange();

    /// Takes the PC's announcement of images to push and asks ZELApp whether the update may start.
    int ProcessUpdateStart(const CPCMsg& message, const SessionPtr& session);

private:
    [[nodiscard]] bool MayRegister(const CPCMsg& message, const SessionPtr& session);
    void Register(const CPCMsg& message, const RegisteredPC& pc, const SessionPtr& session);
    void NotifyPreviousPC(const CPCMsg& request, const RegisteredPC& previous);

    QENFx::Log::FileLog* log_;
    const RMUP::Process::ServiceContext& service_;
};
