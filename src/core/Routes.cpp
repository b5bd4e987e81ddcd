#include "core/Routes.h"

#include <memory>

#include "config/CConfigMgr.h"
#include "net/CConnectionMonitor.h"
#include "net/CTCPListener.h"
#include "net/CTCPSession.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
#include "net/Route.h"
#include "net/UDSMessageId.h"
#include "process/CConnect.h"
#include "process/CTransferResult.h"
#include "process/CUpdateCommand.h"
#include "process/update/CImageReceiver.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CTCPListener;
using RMUP::Net::CTCPSession;
using RMUP::Net::CUDPServer;
using RMUP::Net::CUDSServer;
using RMUP::Net::TCPRoute;
using RMUP::Net::TCPRoutes;
using RMUP::Net::UDPRoute;
using RMUP::Net::UDSRoute;
using RMUP::Process::CImageReceiver;

namespace {

using Session = const std::shared_ptr<CTCPSession>&;

int AcknowledgeIPChange(CPCMsg&) {
    CConnectionMonitor::GetInstance()->SetIPChangePending(false);
    // Anybody can send this, as often as he likes; the settings file is not to be written for nothing.
    CConfigMgr* config = CConfigMgr::GetInstance();
    if (config->GetContents(kIPChanged) != "0") {
        config->SetContents(kIPChanged, 0);
    }
    return 0;
}

/// Of the PC's error notices, those with which it gives an update up; it has no others for the device.
void ProcessErrorNotice(CPCMsg& message, Session session) {
    const auto payload = message.GetPayload();
    const std::uint16_t code = payload.size() < 2 ? std::uint16_t{0} : Bytes::GetBE16(payload, 0);
    if (code >= kFirstCancel && code <= kLastCancel) {
        CUpdateCommand().ProcessUpdateCancel(message, session);
    }
}

constexpr UDPRoute kUDPRoutes[] = {
    {kScanDevice, [](CPCMsg& message) { return CConnect().ProcessScanDevice(message); },
     "%s Process scan device failed", false},
    {kDeviceInfoChange, [](CPCMsg& message) { return CConnect().ProcessDeviceInfoChangeNotify(message); },
     "%s Process device info change notify failed", true},
    {kDeviceInfoChangeAck, &AcknowledgeIPChange, "%s", false},
};

constexpr TCPRoute kTCPRoutes[] = {
    {kRegisterDevice, [](CPCMsg& message, Session session) { CConnect().ProcessRegisterDevice(message, session); }},
    {kUnregisterDevice, [](CPCMsg& message, Session session) { CConnect().ProcessUnregisterDevice(message, session); }},
    {kGetInfo, [](CPCMsg& message, Session session) { CConnect().ProcessGetDeviceInfo(message, session); }},
    {kUpdateStart, [](CPCMsg& message, Session session) { CConnect().ProcessUpdateStart(message, session); }},
    {kImageData,
     [](CPCMsg& message, Session session) { CUpdateCommand().ProcessReceiveUpdateImage(message, session); }},
    {kInfo, [](CPCMsg& message, Session session) { CUpdateCommand().ProcessUpdateInfoRes(message, session); }},
    {kErrorNotice, &ProcessErrorNotice},
    {kResult, [](CPCMsg&, Session session) { session->AcknowledgeResult(); }},
};

constexpr TCPRoutes kTCP = {kTCPRoutes, [](Session session) { CImageReceiver::GetInstance()->SessionEnded(session); }};

constexpr UDSRoute kUDSRoutes[] = {
    {kUDSAddressChanged, [](CUDSMsg&) { CConnect().ProcessIPChange(); }},
    {kUDSSendResult, [](CUDSMsg& message) { CTransferResult().ProcessSendResult(message); }},
    {kUDSUpdateStart, [](CUDSMsg& message) { CUpdateCommand().ProcessUpdateStart(message); }},
    {kUDSUpdateResponse, [](CUDSMsg& message) { CUpdateCommand().ProcessUpdateRequestRes(message); }},
};

}  // namespace

Routes AllRoutes() {
    return {kUDPRoutes, kTCP, kUDSRoutes};
}

void ConnectRoutes() {
    CConnectionMonitor* monitor = CConnectionMonitor::GetInstance();
    CUDPServer::GetInstance()->Connect(kUDPRoutes, monitor);
    CTCPListener::GetInstance()->Connect(kTCP, monitor);
    CUDSServer::GetInstance()->Connect(kUDSRoutes);
}
