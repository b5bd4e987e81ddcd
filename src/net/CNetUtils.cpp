#include "net/CNetUtils.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/FrameworkError.h"
#include "config/CConfigMgr.h"
#include "wire/PCPacket.h"

using QENFx::Config::ConfigurationException;
using QENFx::Config::ConfigurationManager;
using QENFx::Data::Properties::FileProperty;

namespace {

constexpr char kMyIPAddrTag[] = "[CNetUtils::GetMyIPAddr]";

/// The socket by which the system is asked for addresses; kept, as every scan asks. -1 with errno while there is none.
int QuerySocket() {
    static std::mutex mutex;
    static int kept = -1;
    const std::lock_guard lock(mutex);
    if (kept < 0) {
        kept = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    return kept;
}

}  // namespace

CNetUtils::CNetUtils() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

std::string CNetUtils::GetMyIPAddr() const {
    const CTaggedLog log(log_, kMyIPAddrTag);
    const int socket = QuerySocket();
    if (socket < 0) {
        log.WriteError("socket open error: %s", strerror(errno));
        return "0.0.0.0";
    }

    ifreq request{};
    const std::string interface = DefaultRouteInterface();
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(socket, SIOCGIFADDR, &request) == 0) {
        sockaddr_in address;
        memcpy(&address, &request.ifr_addr, sizeof(address));
        return DottedAddress(address.sin_addr);
    }
    log.WriteError("Get my IP address failed: %s", strerror(errno));
    return ConfiguredAddress();
}

std::string CNetUtils::GetMyIPAddrFor(const std::string& pcAddress) const {
    return pcAddress == kUSBPCAddress ? kUSBDeviceAddress : GetMyIPAddr();
}

std::string CNetUtils::DefaultRouteInterface() const {
    constexpr int kUpAndGateway = 3;
    std::string name;
    const std::unique_ptr<FILE, int (*)(FILE*)> routes(fopen("/proc/net/route", "re"), &fclose);
    if (routes == nullptr) {
        return name;
    }
    char line[256];
    while (fgets(line, sizeof(line), routes.get()) != nullptr) {
        // Most lines are of other routes; only what may be the default one is looked at closely.
        if (strncmp(line, "Iface", 5) == 0 || strtoul(line + strcspn(line, "\t "), nullptr, 16) != 0) {
            continue;
        }
        char interface[sizeof(line)];
        unsigned destination = 0;
        unsigned gateway = 0;
        unsigned mask = 0;
        int flags = 0;
        int references = 0;
        int use = 0;
        int metric = 0;
        const int fields = sscanf(line, "%s\t%x\t%x\t%d\t%d\t%d\t%d\t%x", interface, &destination, &gateway, &flags,
                                  &references, &use, &metric, &mask);
        if (fields == 8 && destination == 0 && mask == 0 && flags == kUpAndGateway) {
            name = interface;
        }
    }
    return name;
}

std::string CNetUtils::ConfiguredAddress() const {
    const CTaggedLog log(log_, kMyIPAddrTag);
    try {
        const std::unique_ptr<FileProperty> file(
            ConfigurationManager::GetManager()->Open(kSystemConfigFile, QENFx::Config::kOpenReadWrite));
        std::string address = file->getValue("IPAddress");
        log.WriteInfo("Get IP from config_zel.cfg");
        return address;
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
        return {};
    }
}

std::uint32_t CNetUtils::ByteSum(std::span<const std::uint8_t> data) {
    return Wire::ByteSum(data);
}

std::uint32_t CNetUtils::AddressNumber(const std::string& dotted) {
    in_addr address{};
    return inet_pton(AF_INET, dotted.c_str(), &address) == 1 ? ntohl(address.s_addr) : 0;
}

sockaddr_in CNetUtils::SocketAddress(const std::string& dotted, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(AddressNumber(dotted));
    return address;
}

std::string CNetUtils::DottedAddress(const in_addr& address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}
