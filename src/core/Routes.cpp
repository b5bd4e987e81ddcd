#include "core/Routes.h"

#include <memory>

#include "config/CConfigMgr.h"
#include "net/CConnectionMonitor.h"
#include "net/CResultMarker.h"
#include "net/CTCPListener.h"
#include "net/CTCPSession.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
#include "net/PCCommand.h"
#include "net/Route.h"
#include "net/UDSMessageId.h"
#include "process/CConnect.h"
#include "process/CTransferResult.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CTCPListener;
using RMUP::Net::CTCPSession;
using RMUP::Net::CUDPServer;
using RMUP::Net::CUDSServer;
using RMUP::Net::TCPRoute;
using RMUP::Net::UDPRoute;
using RMUP::Net::UDSRoute;

namespace {

using Session = const std::shared_ptr<CTCPSession>&;

int AcknowledgeIPChange(CPCMsg&) {
    CConnectionMonitor::GetInstance()->SetIPChangePending(false);
    CConfigMgr::GetInstance()->SetContents(kIPChanged, 0);
    return 0;
}

constexpr UDPRoute kUDPRoutes[] = {
    {kScanDevice, [](CPCMsg& message) { return CConnect().ProcessScanDevice(message); }, "Process scan device failed",
     false},
    {kDeviceInfoChange, [](CPCMsg& message) { return CConnect().ProcessDeviceInfoChangeNotify(message); },
     "Process device info change notify failed", true},
    {kDeviceInfoChangeAck, &AcknowledgeIPChange, "", false},
};

constexpr TCPRoute kTCPRoutes[] = {
    {kRegisterDevice, [](CPCMsg& message, Session session) { CConnect().ProcessRegisterDevice(message, session); }},
    {kUnregisterDevice, [](CPCMsg& message, Session session) { CConnect().ProcessUnregisterDevice(message, session); }},
    {kGetInfo, [](CPCMsg& message, Session session) { CConnect().ProcessGetDeviceInfo(message, session); }},
    {kResult, [](CPCMsg&, Session) { CResultMarker::Create(); }},
};

constexpr UDSRoute kUDSRoutes[] = {
    {kUDSAddressChanged, [](CUDSMsg&) { CConnect().ProcessIPChange(); }},
    {kUDSSendResult, [](CUDSMsg& message) { CTransferResult().ProcessSendResult(message); }},
};

}  // namespace

void ConnectRoutes() {
    CConnectionMonitor* monitor = CConnectionMonitor::GetInstance();
    CUDPServer::GetInstance()->Connect(kUDPRoutes, monitor);
    CTCPListener::GetInstance()->Connect(kTCPRoutes, monitor);
    CUDSServer::GetInstance()->Connect(kUDSRoutes);
}
