#pragma once

class CConfigMgr;
class CDeviceInfo;

namespace RMUP::Net {
class CConnectionMonitor;
class CUDPServer;
class CUDSServer;
}  // namespace RMUP::Net

namespace RMUP::Process {

class CUpdateAccess;

/// What the handlers of requests work with. Made once, by the main thread; all of it lives as long as the process and
/// may be used from any thread.
struct ServiceContext {
    CConfigMgr& config;
    CDeviceInfo& device;
    Net::CConnectionMonitor& monitor;
    Net::CUDPServer& udp;
    Net::CUDSServer& local;
    CUpdateAccess& updates;
};

}  // namespace RMUP::Process
