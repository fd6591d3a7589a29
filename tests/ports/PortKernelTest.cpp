// The sysfs and I210 port strategies against the kernel's own interfaces in
// the network sandbox: tap interfaces for speed and duplex (their driver keeps
// whatever `ethtool -s` sets), a veth pair for the link. qemu-user has no SIOCETHTOOL: the qemu-arm run leaves the
// I210Ethtool test out; the armhf VM runs it.
#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"

#include "CaseFile.hpp"
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using namespace Zel::Hardware::Nim;
using namespace Zel::Test;

// ethtool's command line sets half or full duplex only; the tap driver keeps
// any code that the ioctl hands it.
void SetDuplexCode(const char* name, std::uint8_t duplex)
{
    ethtool_cmd command{};
    ifreq request{};
    std::snprintf(request.ifr_name, IFNAMSIZ, "%s", name);
    request.ifr_data = reinterpret_cast<char*>(&command);
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    command.cmd = ETHTOOL_GSET;
    ASSERT_EQ(0, ::ioctl(fd, SIOCETHTOOL, &request));
    command.cmd = ETHTOOL_SSET;
    command.duplex = duplex;
    ASSERT_EQ(0, ::ioctl(fd, SIOCETHTOOL, &request));
    ::close(fd);
}

class KernelPort : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }

    LogCapture capture{8};
};

// Administratively down, the kernel refuses speed and duplex with EINVAL; a
// missing interface is ENODEV; one message per query. The I210 port's name is
// cut to the kernel's fifteen characters. How a pulled cable reads is checked
// through the plug-in's ports.
TEST_F(KernelPort, KernelFailuresAndTheInterfaceName)
{
    NetSandbox().Ip("tuntap add dev sft1 mode tap").SetLinkUp("sft1");
    ModuleSettings settings;
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/sft1/");
    const EthPortInfoSysFile port(1, 1, settings);
    NetSandbox().SetLinkDown("sft1");
    EXPECT_EQ(port.GetPortLinkState(), LinkState::Down);
    EXPECT_EQ(port.GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port.GetPortLinkDuplex(), LinkDuplex::Unknown);
    const std::string failed = "Error GetPortLinkState() for device 1, port 1 (/sys/class/net/sft1/";
    EXPECT_EQ(capture.Count(3, failed + "speed): errno 22"), 1U);
    EXPECT_EQ(capture.Count(3, failed + "duplex): errno 22"), 1U);

    const EthPortInfoI210Drv i210(3, 2, "nosuch0");
    EXPECT_EQ(i210.GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(i210.GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(i210.GetPortLinkDuplex(), LinkDuplex::Unknown);
    for (const char* query : {"State", "Speed", "Duplex"}) {
        EXPECT_EQ(capture.Count(3,
                                fmt::format("Error GetPortLink{}() for device 3, port 2 (nosuch0): errno 19", query)),
                  1U);
    }

    NetSandbox().Veth("ifname15charsxx", "ifname15p").Up();
    const EthPortInfoI210Drv overlong(1, 2, "ifname15charsxxTAIL");
    // The kernel's link watch may take up to a second to raise the running flag.
    EXPECT_TRUE(WaitUntil([&] { return overlong.GetPortLinkState() == LinkState::Up; }, 5s));
    EXPECT_EQ(capture.Records().size(), 5U);
}

// Speeds the tap driver accepts, also ones that are not 10/100/1000 and one
// whose low half alone would read as 10. The sysfs port's texts for them are
// in the decoding cases.
TEST_F(KernelPort, I210EthtoolSpeedAndDuplexTable)
{
    NetSandbox().Ip("tuntap add dev ie0 mode tap").SetLinkUp("ie0");
    const EthPortInfoI210Drv i210(1, 1, "ie0");
    for (const auto& row : Cases("ethtool.cases").at(0).Lines("rows")) {
        const auto fields = Words(row); // ethtool -s arguments or a duplex code|speed|duplex
        if (fields.at(0).rfind("duplex code ", 0) == 0) {
            SetDuplexCode("ie0", static_cast<std::uint8_t>(std::stoi(fields.at(0).substr(12))));
        } else {
            RunOutput("ethtool -s ie0 " + fields.at(0));
        }
        EXPECT_EQ(static_cast<int>(i210.GetPortLinkSpeed()), std::stoi(fields.at(1))) << row;
        EXPECT_EQ(static_cast<int>(i210.GetPortLinkDuplex()), std::stoi(fields.at(2))) << row;
    }
    EXPECT_TRUE(capture.Records().empty());
}

} // namespace
