// The sysfs and I210 port strategies against the kernel's own interfaces, in
// the network sandbox: veth pairs for the link (a peer going down is a pulled
// cable), tap interfaces for speed and duplex (their driver keeps whatever
// `ethtool -s` sets, veth always reports 10000/full).
//
// The I210Ethtool fixture needs SIOCETHTOOL, which qemu-user lacks; the
// armhf run leaves it out (see CMakeLists.txt).
#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"

#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoI210Drv;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSysFile;
using Zel::Hardware::Modules::Nim::Linux::Internal::IEthPortInfo;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::NetSandbox;
using Zel::Test::RunOutput;
using Zel::Test::WaitUntil;

// Carrier changes reach operstate through the kernel's link watch, which
// may take up to a second.
bool StateBecomes(const IEthPortInfo& port, LinkState expected)
{
    return WaitUntil([&] { return port.GetPortLinkState() == expected; }, 5s);
}

void SetTapLink(const std::string& tap, const std::string& ethtoolArguments)
{
    RunOutput("ethtool -s " + tap + " " + ethtoolArguments);
}

struct SpeedCase {
    const char* ethtool;
    LinkSpeed speed;
    LinkDuplex duplex;
};

// Speeds the tap driver accepts, also ones that are not 10/100/1000 and one
// (65546 = 1 << 16 | 10) whose low half alone would read as 10.
const SpeedCase SpeedCases[] = {
    {"speed 10 duplex half", LinkSpeed::Speed10, LinkDuplex::Half},
    {"speed 100 duplex full", LinkSpeed::Speed100, LinkDuplex::Full},
    {"speed 1000 duplex half", LinkSpeed::Speed1000, LinkDuplex::Half},
    {"speed 2500 duplex full", LinkSpeed::Unknown, LinkDuplex::Full},
    {"speed 65546 duplex full", LinkSpeed::Unknown, LinkDuplex::Full},
    {"speed 10000 duplex full", LinkSpeed::Unknown, LinkDuplex::Full},
};

class KernelPort : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }
    void TearDown() override
    {
        for (const std::string& link : links) {
            Zel::Test::Run("ip link del dev " + link + " 2>/dev/null");
        }
    }

    // A veth pair whose peer (the far end of the cable) is up.
    void MakeVeth(const std::string& name, const std::string& peer = {})
    {
        NetSandbox().Veth(name, peer.empty() ? name + "p" : peer).Up();
        links.push_back(name);
    }
    void MakeTap(const std::string& name)
    {
        NetSandbox().Ip("tuntap add dev " + name + " mode tap").SetLinkUp(name);
        links.push_back(name);
    }

    std::vector<std::string> links;
    LogCapture capture{8};
};

// ---------------------------------------------------------------- sysfs ----

class SysFileKernel : public KernelPort {
protected:
    std::unique_ptr<EthPortInfoSysFile> Make(const std::string& interfaceName)
    {
        settings.AddSetting("path.1.1.sysFile", "/sys/class/net/" + interfaceName + "/");
        return std::make_unique<EthPortInfoSysFile>(1, 1, settings);
    }

    ModuleSettings settings;
};

TEST_F(SysFileKernel, OperstateFollowsTheCable)
{
    MakeVeth("sf0");
    const auto port = Make("sf0");
    EXPECT_TRUE(StateBecomes(*port, LinkState::Up));

    // Peer down: the kernel says "lowerlayerdown", neither up nor down.
    NetSandbox().SetLinkDown("sf0p");
    EXPECT_TRUE(StateBecomes(*port, LinkState::Unknown));
    NetSandbox().SetLinkUp("sf0p");
    EXPECT_TRUE(StateBecomes(*port, LinkState::Up));

    NetSandbox().SetLinkDown("sf0");
    EXPECT_TRUE(StateBecomes(*port, LinkState::Down));
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(SysFileKernel, SpeedAndDuplexTable)
{
    MakeTap("sft0");
    const auto port = Make("sft0");
    for (const SpeedCase& c : SpeedCases) {
        SetTapLink("sft0", c.ethtool);
        EXPECT_EQ(port->GetPortLinkSpeed(), c.speed) << c.ethtool;
        EXPECT_EQ(port->GetPortLinkDuplex(), c.duplex) << c.ethtool;
    }
    // The kernel writes -1 for an unknown speed.
    SetTapLink("sft0", "speed 4294967295");
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(SysFileKernel, AdministrativelyDownInterfaceRefusesSpeedAndDuplex)
{
    MakeTap("sft1");
    const auto port = Make("sft1");
    NetSandbox().SetLinkDown("sft1");
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Down);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    // One message per query, no rate limit (EINVAL from the kernel).
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 1, port 1 (/sys/class/net/sft1/speed): errno 22"), 2U);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 1, port 1 (/sys/class/net/sft1/duplex): errno 22"), 1U);
}

TEST_F(SysFileKernel, VanishedInterfaceGivesUnknownCodesFromStaleFiles)
{
    MakeVeth("sf1");
    const auto port = Make("sf1");
    EXPECT_TRUE(StateBecomes(*port, LinkState::Up));
    NetSandbox().Delete("sf1");
    links.clear();

    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 3U);
    for (const auto& record : records) {
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.text.rfind("Error GetPortLinkState() for device 1, port 1 (/sys/class/net/sf1/", 0), 0U)
            << record.text;
    }
}

TEST_F(SysFileKernel, NonexistentInterfaceStopsSetUp)
{
    try {
        Make("nosuch0");
        FAIL() << "accepted";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "Could not open '/sys/class/net/nosuch0/operstate' for read.");
    }
}

// ------------------------------------------------------------ I210 flags ----

class I210Flags : public KernelPort {};

TEST_F(I210Flags, RunningFlagClearsWhenThePeerGoesDown)
{
    MakeVeth("i0");
    const EthPortInfoI210Drv port(1, 1, "i0");
    EXPECT_TRUE(StateBecomes(port, LinkState::Up));

    // Administratively up without a cable: judged by the carrier, so down.
    NetSandbox().SetLinkDown("i0p");
    EXPECT_TRUE(StateBecomes(port, LinkState::Down));
    EXPECT_NE(RunOutput("ip -o link show dev i0").find(",UP"), std::string::npos) << "i0 itself is still up";

    NetSandbox().SetLinkUp("i0p");
    EXPECT_TRUE(StateBecomes(port, LinkState::Up));
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(I210Flags, NonexistentInterfaceGivesUnknownStateWithOneMessagePerQuery)
{
    const EthPortInfoI210Drv port(3, 2, "nosuch0");
    EXPECT_EQ(port.GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port.GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 3, port 2 (nosuch0): errno 19"), 2U);
    EXPECT_EQ(capture.Records().size(), 2U);
}

TEST_F(I210Flags, LongNameIsCutToFifteenCharacters)
{
    MakeVeth("ifname15charsxx", "ifname15p");
    const EthPortInfoI210Drv port(1, 1, "ifname15charsxxTAIL");
    EXPECT_TRUE(StateBecomes(port, LinkState::Up));
    EXPECT_TRUE(capture.Records().empty());
}

// ---------------------------------------------------------- I210 ethtool ----

class I210Ethtool : public KernelPort {};

TEST_F(I210Ethtool, SpeedAndDuplexTable)
{
    MakeTap("ie0");
    const EthPortInfoI210Drv port(1, 1, "ie0");
    for (const SpeedCase& c : SpeedCases) {
        SetTapLink("ie0", c.ethtool);
        EXPECT_EQ(port.GetPortLinkSpeed(), c.speed) << c.ethtool;
        EXPECT_EQ(port.GetPortLinkDuplex(), c.duplex) << c.ethtool;
    }
    SetTapLink("ie0", "speed 4294967295");
    EXPECT_EQ(port.GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(I210Ethtool, NonexistentInterfaceGivesUnknownCodesWithOneMessagePerQuery)
{
    const EthPortInfoI210Drv port(3, 2, "nosuch0");
    EXPECT_EQ(port.GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port.GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port.GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 3, port 2 (nosuch0): errno 19"), 1U);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkSpeed() for device 3, port 2 (nosuch0): errno 19"), 1U);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkDuplex() for device 3, port 2 (nosuch0): errno 19"), 1U);
    EXPECT_EQ(capture.Records().size(), 3U);
}

} // namespace
