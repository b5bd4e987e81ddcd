#include <span>
#include <vector>

#include "common/CTaggedLog.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CConnectionMonitor.h"
#include "net/CNetUtils.h"
#include "process/CConnect.h"
#include "process/TextField.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace {

using RMUP::Process::ServiceContext;
using Field = std::span<std::uint8_t>;

constexpr std::size_t kAddressSize = 4;
constexpr std::size_t kNameSize = 10;
constexpr std::size_t kSerialSize = 10;
constexpr std::size_t kVersionSize = 16;

/// An item of device information: how large its entry is, and what is put into it, which is zero before. `peer` is the
/// address of the PC that asks.
struct Item {
    std::uint16_t bit;
    std::size_t size;
    void (*put)(Field entry, const ServiceContext& service, const std::string& peer);
};

void PutActivity(Field entry, const ServiceContext& service, const std::string&) {
    const DeviceStatus status = service.device.GetStatus();
    entry[0] = status == DeviceStatus::kAnalyzing ? 1 : status == DeviceStatus::kUpdating ? 3 : 4;
}

void PutPeerID(Field entry, const ServiceContext& service, const std::string&) {
    entry[0] = static_cast<std::uint8_t>(service.config.GetNumber(ConfigKey::kPCPeerID));
}

void PutTCPPort(Field entry, const ServiceContext& service, const std::string&) {
    Bytes::PutBE16(entry, 0, service.config.GetNumber(ConfigKey::kZELRMTCPPort));
}

void PutDeviceAddress(Field entry, const ServiceContext&, const std::string& peer) {
    Bytes::PutBE32(entry, 0, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(peer)));
}

void PutSerialNumber(Field entry, const ServiceContext& service, const std::string&) {
    PutText(entry, service.device.GetSerialNumber());
}

template <std::string (CDeviceInfo::*Get)() const>
void PutVersion(Field entry, const ServiceContext& service, const std::string&) {
    PutText(entry, (service.device.*Get)());
}

void PutNothing(Field, const ServiceContext&, const std::string&) {}

/// In the order of their entries. PC programs ask for the XML archive under two bits and expect the same version under
/// both.
constexpr Item kItems[] = {
    {kItemActivity, 1, &PutActivity},
    {kItemPeerID, 1, &PutPeerID},
    {kItemTCPPort, 2, &PutTCPPort},
    {kItemDeviceAddress, kAddressSize, &PutDeviceAddress},
    {kItemSerialNumber, kSerialSize, &PutSerialNumber},
    {kItemSYSVersion, kVersionSize, &PutVersion<&CDeviceInfo::GetSYSVersion>},
    {kItemAppVersion, kVersionSize, &PutVersion<&CDeviceInfo::GetAppVersion>},
    {kItemDSPVersion, kVersionSize, &PutVersion<&CDeviceInfo::GetDSPVersion>},
    {kItemXMLVersion, kVersionSize, &PutVersion<&CDeviceInfo::GetXMLVersion>},
    {kItemXMLVersionAgain, kVersionSize, &PutVersion<&CDeviceInfo::GetXMLVersion>},
    {kItemReserved, 2, &PutNothing},
};

/// Appends a zeroed entry of that size.
Field Append(std::vector<std::uint8_t>& payload, std::size_t size) {
    payload.resize(payload.size() + size);
    return std::span(payload).last(size);
}

/// What a PC that is not the registered one is told of the registration.
void AppendOtherPC(std::vector<std::uint8_t>& payload, const RegisteredPC& registered) {
    Append(payload, 1);
    Bytes::PutBE32(Append(payload, kAddressSize), 0, CNetUtils::AddressNumber(registered.address));
    PutText(Append(payload, kNameSize), registered.name);
}

}  // namespace

int CConnect::ProcessGetDeviceInfo(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, "[CConnect::ProcessGetDeviceInfo]");
    if (message.GetPayload().size() != 2) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    log.WriteInfo("Get device info response making start");
    const RegisteredPC registered = service_.config.GetRegisteredPC();
    const std::uint16_t mask = Bytes::GetBE16(message.GetPayload(), 0);
    if ((mask & kItemAnyVersion) != 0) {
        service_.device.RefreshVersions();
    }

    const std::string peer = session->GetClientIPAddr();
    std::vector<std::uint8_t> payload;
    Bytes::PutBE16(Append(payload, 2), 0, mask);
    for (const Item& item : kItems) {
        if ((mask & item.bit) != 0) {
            item.put(Append(payload, item.size), service_, peer);
        }
    }
    auto subTag = static_cast<std::uint8_t>(registered.peerID);
    if ((mask & kItemRegistration) != 0 && peer == registered.address) {
        Append(payload, 1)[0] = 1;
        service_.monitor.SeeLink(session);
    } else if ((mask & kItemRegistration) != 0) {
        AppendOtherPC(payload, registered);
        subTag = 0xFF;
    }

    CPCMsg response;
    (void)session->SendMessage(response.MakePacket(PCCommand::kInfo, message.GetTag(), subTag, payload));
    response.WritePacketLog();
    log.WriteInfo("Get device info sequence complete");
    return 0;
}
