#include "AccessibilityBus.h"
#include "Subprocess.h"

#include <gtest/gtest.h>

namespace quorl::test {
namespace {

TEST(AccessibilityBus, OnlyOneUnixSocketIsAnAddress) {
    using Kind = BusSocket::Kind;
    const std::pair<const char*, BusSocket> good[] = {
        {"unix:path=/run/user/0/at-spi/bus_0", {Kind::file, "/run/user/0/at-spi/bus_0"}},
        {"unix:abstract=/tmp/dbus-x,guid=0a", {Kind::abstract, "/tmp/dbus-x"}},
        {"unix:guid=0a,path=/a%20b", {Kind::file, "/a b"}},
    };
    for (const auto& [address, socket] : good)
        EXPECT_EQ(soleBusSocket(address), socket) << address;
    for (const char* address :
         {"", "unix:", "disabled:", "autolaunch:", "unixexec:path=/bin/sh", "tcp:host=h,port=1",
          "unix:path=/a;unixexec:path=/bin/sh", "unix:path=/a,path=/b", "unix:path=/a,abstract=b",
          "unix:tmpdir=/tmp", "unix:path=", "unix:path=/a%0", "unix:path=/a%00", "unix:path=/a b",
          "unix:path=/a,x", " unix:path=/a"})
        EXPECT_EQ(soleBusSocket(address), std::nullopt) << address;
}

TEST(AccessibilityBus, ABusOfTheseAccountsMustAdmitUs) {
    TestSandbox sandbox;
    const BusSocket bus{BusSocket::Kind::file, sandbox.root() / "bus"};
    const uid_t ours[] = {geteuid()};
    const uid_t others[] = {geteuid() + 1};
    EXPECT_FALSE(admittedBy(bus, ours));
    const auto start = [&](const std::string& policy) {
        const std::string config = sandbox.root() / "bus.conf";
        const std::string said = sandbox.root() / "address";
        std::filesystem::remove(said);
        TestSandbox::write(config, "<busconfig><listen>unix:path=" + bus.name + "</listen><auth>" +
                                       policy +
                                       "</auth><policy context='default'><allow user='*'/>"
                                       "</policy></busconfig>");
        auto daemon = std::make_unique<Subprocess>(Subprocess::Options{
            .command = {"dbus-daemon", "--nofork", "--print-address", "--config-file=" + config},
            .output = said});
        // It says so when it listens; its socket is there before.
        EXPECT_TRUE(waitFor([&] { return !TestSandbox::read(said).empty(); }));
        return daemon;
    };
    auto daemon = start("EXTERNAL");
    EXPECT_TRUE(admittedBy(bus, ours));
    EXPECT_FALSE(admittedBy(bus, others));
    daemon.reset();
    daemon = start("DBUS_COOKIE_SHA1");
    EXPECT_FALSE(admittedBy(bus, ours));
}

}  // namespace
}  // namespace quorl::test
