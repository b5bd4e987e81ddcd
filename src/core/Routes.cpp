#include "core/Routes.h"

#include <memory>

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CConnectionMonitor.h"
#include "net/CTCPListener.h"
#include "net/CTCPSession.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/CConnect.h"
#include "process/CTransferResult.h"
#include "process/update/CUpdateAccess.h"
#include "process/update/CUpdateCommand.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CTCPListener;
using RMUP::Net::CTCPSession;
using RMUP::Net::CUDPServer;
using RMUP::Net::CUDSServer;
using RMUP::Net::TCPRoutes;
using RMUP::Net::UDPRoute;
using RMUP::Net::UDSMessageId;
using RMUP::Net::UDSRoute;
using RMUP::Process::CUpdateAccess;
using RMUP::Process::ServiceContext;

namespace {

using Session = const std::shared_ptr<CTCPSession>&;

int AcknowledgeIPChange(const ServiceContext& service) {
    service.monitor.SetIPChangePending(false);
    // Anybody can send this, as often as he likes; the settings file is not to be written for nothing.
    if (service.config.GetContents(ConfigKey::kIPChanged) != "0") {
        service.config.SetContents(ConfigKey::kIPChanged, 0);
    }
    return 0;
}

/// Of the PC's error notices, those with which it gives an update up; it has no others for the device.
void ProcessErrorNotice(const ServiceContext& service, const CPCMsg& message, Session session) {
    const auto payload = message.GetPayload();
    const std::uint16_t code = payload.size() < 2 ? std::uint16_t{0} : Bytes::GetBE16(payload, 0);
    if (code >= kFirstCancel && code <= kLastCancel) {
        CUpdateCommand(service).ProcessUpdateCancel(message, session);
    }
}

/// Makes the handler object for one message and runs it, for each message anew.
template <typename Handler, typename Result, typename... Arguments>
auto With(const ServiceContext& service, Result (Handler::*process)(Arguments...)) {
    return [&service, process](auto&... arguments) { return (Handler(service).*process)(arguments...); };
}

std::vector<UDPRoute> UDPRoutes(const ServiceContext& service) {
    return {
        {PCCommand::kScanDevice, With(service, &CConnect::ProcessScanDevice), "%s Process scan device failed", false},
        {PCCommand::kDeviceInfoChange, With(service, &CConnect::ProcessDeviceInfoChangeNotify),
         "%s Process device info change notify failed", true},
        {PCCommand::kDeviceInfoChangeAck, [&service](CPCMsg&) { return AcknowledgeIPChange(service); }, "%s", false},
    };
}

TCPRoutes PCRoutes(const ServiceContext& service) {
    return {
        {
            {PCCommand::kRegisterDevice, With(service, &CConnect::ProcessRegisterDevice)},
            {PCCommand::kUnregisterDevice, With(service, &CConnect::ProcessUnregisterDevice)},
            {PCCommand::kGetInfo, With(service, &CConnect::ProcessGetDeviceInfo)},
            {PCCommand::kUpdateStart, With(service, &CConnect::ProcessUpdateStart)},
            {PCCommand::kImageData, With(service, &CUpdateCommand::ProcessReceiveUpdateImage)},
            {PCCommand::kInfo, With(service, &CUpdateCommand::ProcessUpdateInfoRes)},
            {PCCommand::kErrorNotice,
             [&service](const CPCMsg& message, Session session) { ProcessErrorNotice(service, message, session); }},
            {PCCommand::kResult, [](const CPCMsg&, Session session) { session->AcknowledgeResult(); }},
        },
        [&service](Session session) { service.updates.Gate().SessionEnded(session); },
    };
}

std::vector<UDSRoute> UDSRoutes(const ServiceContext& service) {
    return {
        {UDSMessageId::kAddressChanged, [&service](const CUDSMsg&) { CConnect(service).ProcessIPChange(); }},
        {UDSMessageId::kSendResult, With(service, &CTransferResult::ProcessSendResult)},
        {UDSMessageId::kUpdateStart, With(service, &CUpdateCommand::ProcessUpdateStart)},
        {UDSMessageId::kUpdateResponse, With(service, &CUpdateCommand::ProcessUpdateRequestRes)},
    };
}

}  // namespace

const ServiceContext& Service() {
    // Never deleted: sessions and a worker may still use it while the process exits.
    static CUpdateAccess* const updates = new CUpdateAccess(*CDeviceInfo::GetInstance());
    static const ServiceContext service = {*CConfigMgr::GetInstance(),         *CDeviceInfo::GetInstance(),
                                           *CConnectionMonitor::GetInstance(), *CUDPServer::GetInstance(),
                                           *CUDSServer::GetInstance(),         *updates};
    return service;
}

const Routes& AllRoutes() {
    // Never deleted: other threads use them while the process exits.
    static const Routes* const routes = new Routes{UDPRoutes(Service()), PCRoutes(Service()), UDSRoutes(Service())};
    return *routes;
}

void ConnectRoutes() {
    const Routes& routes = AllRoutes();
    const ServiceContext& service = Service();
    service.udp.Connect(routes.udp, &service.monitor);
    CTCPListener::GetInstance()->Connect(routes.tcp, &service.monitor, service.config);
    service.local.Connect(routes.uds, service.config, service.device);
    service.monitor.Connect(service.config, service.device, service.udp, service.local);
}
