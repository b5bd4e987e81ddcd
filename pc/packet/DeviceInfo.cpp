#include "packet/DeviceInfo.h"

#include <array>

#include "packet/ScanAnswer.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"
#include "wire/UpdateFormat.h"

namespace ZELPC {

namespace {

using Field = std::span<const std::uint8_t>;

struct Item {
    std::uint16_t bit;
    std::size_t width;
    void (*take)(DeviceInfo&, Field);
};

template <std::optional<std::string> DeviceInfo::*Member>
void TakeText(DeviceInfo& info, Field field) {
    info.*Member = ProtocolText(field);
}

void Ignore(DeviceInfo&, Field) {}

// In the order in which they follow each other. The registration stands behind them; its width depends on itself.
constexpr std::array<Item, 12> kItems = {{
    {kItemActivity, 1, [](DeviceInfo& info, Field field) { info.activity = field[0]; }},
    {kItemPeerID, 1, [](DeviceInfo& info, Field field) { info.peerID = field[0]; }},
    {kItemTCPPort, 2, [](DeviceInfo& info, Field field) { info.tcpPort = Bytes::GetBE16(field, 0); }},
    {kItemDeviceAddress, 4, [](DeviceInfo& info, Field field) { info.address = Bytes::GetBE32(field, 0); }},
    {kItemSerialNumber, 10, TakeText<&DeviceInfo::serial>},
    {kItemSYSVersion, Wire::kVersionSize, TakeText<&DeviceInfo::sysVersion>},
    {kItemAppVersion, Wire::kVersionSize, TakeText<&DeviceInfo::appVersion>},
    {kItemDSPVersion, Wire::kVersionSize, TakeText<&DeviceInfo::dspVersion>},
    {kItemXMLVersion, Wire::kVersionSize, TakeText<&DeviceInfo::xmlVersion>},
    {kItemXMLVersionAgain, Wire::kVersionSize, TakeText<&DeviceInfo::xmlVersion>},
    {kItemPCChanged, 0, Ignore},
    {kItemReserved, 2, Ignore},
}};

constexpr std::size_t kMaskSize = 2;
constexpr std::size_t kAddressSize = 4;
constexpr std::size_t kNameSize = 10;
constexpr std::uint16_t kUnknownItems = 0xE000;

bool TakeRegistration(DeviceInfo& info, Field& rest) {
    if (rest.empty()) {
        return false;
    }
    info.registered = rest[0] == 1;
    const std::size_t width = *info.registered ? 1 : 1 + kAddressSize + kNameSize;
    if (rest.size() < width) {
        return false;
    }
    if (!*info.registered) {
        info.registrant = OtherPC{Bytes::GetBE32(rest, 1), ProtocolText(rest.subspan(1 + kAddressSize, kNameSize))};
    }
    rest = rest.subspan(width);
    return true;
}

struct ActivityRow {
    Activity activity;
    const char* word;
    const char* text;
};

constexpr ActivityRow kActivities[] = {
    {Activity::kAnalyzing, "analyzing", "measuring"},
    {Activity::kUpdating, "updating", "updating its software"},
    {Activity::kOther, "ready", "ready"},
};

std::string Find(std::uint8_t activity, const char* ActivityRow::*which) {
    for (const ActivityRow& row : kActivities) {
        if (static_cast<std::uint8_t>(row.activity) == activity) {
            return row.*which;
        }
    }
    return "unknown (" + std::to_string(activity) + ")";
}

}  // namespace

std::string ActivityText(std::uint8_t activity) {
    return Find(activity, &ActivityRow::text);
}

std::string ActivityWord(std::uint8_t activity) {
    return Find(activity, &ActivityRow::word);
}

std::optional<DeviceInfo> ParseDeviceInfo(std::span<const std::uint8_t> payload) {
    if (payload.size() < kMaskSize) {
        return std::nullopt;
    }
    const std::uint16_t mask = Bytes::GetBE16(payload, 0);
    Field rest = payload.subspan(kMaskSize);
    if ((mask & kUnknownItems) != 0) {
        return std::nullopt;
    }
    DeviceInfo info;
    for (const Item& item : kItems) {
        if ((mask & item.bit) == 0) {
            continue;
        }
        if (rest.size() < item.width) {
            return std::nullopt;
        }
        item.take(info, rest.first(item.width));
        rest = rest.subspan(item.width);
    }
    if ((mask & kItemRegistration) != 0 && !TakeRegistration(info, rest)) {
        return std::nullopt;
    }
    return rest.empty() ? std::optional(info) : std::nullopt;
}

}  // namespace ZELPC
