// The host stand-in of the stack's ARP cache lookup: loopback phones get a
// derived MAC, real peers are found in the kernel's ARP cache.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "support/netns.h"
#include "support/test_support.h"
#include "zeb_stack.h"

namespace {

std::string lookUp(const char* ip, bool* found) {
    char mac[32];
    memset(mac, 0, sizeof mac);
    *found = ZEBGetMacAddress::GetMacAddrFromARPCache(ip, mac);
    return mac;
}

TEST(HostArpLookup, LoopbackPeerGetsMacDerivedFromItsAddress) {
    bool found = false;
    EXPECT_EQ(lookUp("127.0.0.5", &found), "02:00:7f:00:00:05");
    EXPECT_TRUE(found);
    EXPECT_EQ(lookUp("127.10.200.255", &found), "02:00:7f:0a:c8:ff");
    EXPECT_TRUE(found);
}

TEST(HostArpLookup, WritesSeventeenCharactersWithoutTerminatingZero) {
    char mac[32];
    memset(mac, 'x', sizeof mac);
    ASSERT_TRUE(ZEBGetMacAddress::GetMacAddrFromARPCache("127.0.0.1", mac));
    EXPECT_EQ(std::string(mac, 17), "02:00:7f:00:00:01");
    EXPECT_EQ(mac[17], 'x');
}

TEST(HostArpLookup, NullOrMalformedAddressIsNotFound) {
    bool found = true;
    lookUp(nullptr, &found);
    EXPECT_FALSE(found);
    EXPECT_EQ(lookUp("not-an-address", &found), "");
    EXPECT_FALSE(found);
}

TEST(HostArpLookup, CallIsJournaledAndCanBeScriptedToFail) {
    host::reset();
    host::scriptResult("ZEBGetMacAddress::GetMacAddrFromARPCache", 0);
    bool found = true;
    EXPECT_EQ(lookUp("127.0.0.9", &found), "");
    EXPECT_FALSE(found);
    EXPECT_EQ(host::journalEntries(),
              std::vector<std::string>{"ZEBGetMacAddress::GetMacAddrFromARPCache(127.0.0.9)"});
}

TEST(HostArpLookup, RealPeerInANamespaceIsFoundByItsRealMac) {
    const std::string why = testsupport::netnsUnavailableReason();
    if (!why.empty()) GTEST_SKIP() << why;
    testsupport::NetNamespace camera("cw-cam");
    testsupport::NetNamespace phone("cw-phone");
    ASSERT_TRUE(camera.ok() && phone.ok());
    ASSERT_TRUE(testsupport::joinByVeth(camera, "wlan0", "198.51.100.1/24", phone, "ph0", "198.51.100.7/24"));
    const std::string phoneMac = phone.output("cat /sys/class/net/ph0/address");
    ASSERT_EQ(phoneMac.size(), 17u);

    testsupport::EnterNetNamespace inCamera(camera);
    ASSERT_TRUE(inCamera.ok());
    // Any packet to the phone makes the camera resolve it: a TCP connection
    // attempt to a closed port is answered by a reset.
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    inet_pton(AF_INET, "198.51.100.7", &to.sin_addr);
    connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
    close(fd);

    bool found = false;
    EXPECT_EQ(lookUp("198.51.100.7", &found), phoneMac);
    EXPECT_TRUE(found);
    EXPECT_EQ(lookUp("198.51.100.8", &found), "") << "an address nobody answered for";
    EXPECT_FALSE(found);
}

}  // namespace
