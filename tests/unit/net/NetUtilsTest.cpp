#include "net/CNetUtils.h"

#include <arpa/inet.h>

#include "config/CConfigMgr.h"
#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class NetUtilsTest : public ServiceTest {};

}  // namespace

// Faults: a sum that wraps early, a text that is no address read as a part of one, a byte order.
TEST_F(NetUtilsTest, SumsAndAddresses) {
    EXPECT_EQ(CNetUtils::ByteSum({}), 0U);
    EXPECT_EQ(CNetUtils::ByteSum(Buffer(70000, 0xFF)), 70000U * 0xFF);
    EXPECT_EQ(CNetUtils::AddressNumber("192.168.40.20"), 0xC0A82814U);
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", " 1.2.3.4", "1.2.3.256", "host", "1.2.3.4;"}) {
        EXPECT_EQ(CNetUtils::AddressNumber(text), 0U) << text;
    }
    const sockaddr_in address = CNetUtils::SocketAddress("1.1.40.2", 9036);
    EXPECT_EQ(CNetUtils::DottedAddress(address.sin_addr), "1.1.40.2");
    EXPECT_EQ(ntohs(address.sin_port), 9036);
}

// Faults: no address without a default route, an exception that escapes without the settings.
TEST_F(NetUtilsTest, TheConfiguredAddressServesWithoutARoute) {
    EXPECT_EQ(CNetUtils().GetMyIPAddr(), "");
    EXPECT_EQ(Logged("ERROR [CNetUtils::GetMyIPAddr] Get my IP address failed: No such device"), 1);
    WriteFile(kSystemConfigFile, "IPAddress=10.9.8.7;\n");
    EXPECT_EQ(CNetUtils().GetMyIPAddr(), "10.9.8.7");
    EXPECT_EQ(Logged("INFO [CNetUtils::GetMyIPAddr] Get IP from config_zel.cfg"), 1);
    EXPECT_EQ(CNetUtils().GetMyIPAddrFor("10.0.0.2"), "10.9.8.7");
    EXPECT_EQ(CNetUtils().GetMyIPAddrFor("1.1.40.2"), "1.1.40.1");
}
