#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoUnsupported.hpp"
#include "PortTestSupport.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSysFile;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoUnsupported;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::Ports::OpenDescriptorCount;
using Zel::Test::Ports::ScratchDirectory;

TEST(EthPortInfoUnsupported, KnowsNothing)
{
    const EthPortInfoUnsupported port;
    EXPECT_EQ(port.GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(static_cast<int>(port.GetPortLinkState()), 255);
    EXPECT_EQ(port.GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port.GetPortLinkDuplex(), LinkDuplex::Unknown);
}

// Device 2, port 3: the key and the messages carry both numbers.
class SysFilePort : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir.Write("operstate", "up\n");
        dir.Write("speed", "1000\n");
        dir.Write("duplex", "full\n");
        settings.AddSetting("path.2.3.sysFile", dir.Prefix());
    }

    std::unique_ptr<EthPortInfoSysFile> Make() const { return std::make_unique<EthPortInfoSysFile>(2, 3, settings); }
    std::string OpenFailure(const std::string& path) const { return "Could not open '" + path + "' for read."; }

    ScratchDirectory dir;
    ModuleSettings settings;
    LogCapture capture{8};
};

struct OperstateCase {
    const char* text;
    LinkState expected;
};

TEST_F(SysFilePort, OperstateTable)
{
    const auto port = Make();
    for (const OperstateCase& c : {
             OperstateCase{"up\n", LinkState::Up},
             OperstateCase{"down\n", LinkState::Down},
             OperstateCase{"unknown\n", LinkState::Unknown},
             OperstateCase{"lowerlayerdown\n", LinkState::Unknown},
             OperstateCase{"dormant\n", LinkState::Unknown},
             OperstateCase{"up", LinkState::Up},
             OperstateCase{"dow", LinkState::Unknown},
             OperstateCase{"", LinkState::Unknown},
         }) {
        dir.Write("operstate", c.text);
        EXPECT_EQ(port->GetPortLinkState(), c.expected) << '"' << c.text << '"';
    }
    EXPECT_TRUE(capture.Records().empty()) << "only read failures are reported";
}

struct SpeedCase {
    const char* text;
    LinkSpeed expected;
};

TEST_F(SysFilePort, SpeedTable)
{
    const auto port = Make();
    // The line feed separates 10, 100 and 1000; every other number is unknown.
    for (const SpeedCase& c : {
             SpeedCase{"-1\n", LinkSpeed::Unknown},
             SpeedCase{"10\n", LinkSpeed::Speed10},
             SpeedCase{"100\n", LinkSpeed::Speed100},
             SpeedCase{"1000\n", LinkSpeed::Speed1000},
             SpeedCase{"2500\n", LinkSpeed::Unknown},
             SpeedCase{"10000\n", LinkSpeed::Unknown},
             SpeedCase{"1000", LinkSpeed::Unknown},
             SpeedCase{"100", LinkSpeed::Unknown},
             SpeedCase{"", LinkSpeed::Unknown},
         }) {
        dir.Write("speed", c.text);
        EXPECT_EQ(port->GetPortLinkSpeed(), c.expected) << '"' << c.text << '"';
    }
    EXPECT_TRUE(capture.Records().empty());
}

struct DuplexCase {
    const char* text;
    LinkDuplex expected;
};

TEST_F(SysFilePort, DuplexTable)
{
    const auto port = Make();
    for (const DuplexCase& c : {
             DuplexCase{"full\n", LinkDuplex::Full},
             DuplexCase{"half\n", LinkDuplex::Half},
             DuplexCase{"unknown\n", LinkDuplex::Unknown},
             DuplexCase{"ful", LinkDuplex::Unknown},
             DuplexCase{"", LinkDuplex::Unknown},
         }) {
        dir.Write("duplex", c.text);
        EXPECT_EQ(port->GetPortLinkDuplex(), c.expected) << '"' << c.text << '"';
    }
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(SysFilePort, FailedReadsGiveUnknownAndOneMessagePerQuery)
{
    dir.MakeUnreadable("operstate");
    dir.MakeUnreadable("speed");
    dir.MakeUnreadable("duplex");
    const auto port = Make();
    const std::string prefix = dir.Prefix();

    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);

    // Every text names GetPortLinkState: log filters match it so.
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 2, port 3 (" + prefix + "operstate): errno 21"), 2U);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 2, port 3 (" + prefix + "speed): errno 21"), 1U);
    EXPECT_EQ(capture.Count(3, "Error GetPortLinkState() for device 2, port 3 (" + prefix + "duplex): errno 21"), 1U);
    EXPECT_EQ(capture.Records().size(), 4U);
}

TEST_F(SysFilePort, EachMissingFileStopsSetUp)
{
    for (const char* name : {"operstate", "speed", "duplex"}) {
        dir.Remove(name);
        try {
            Make();
            FAIL() << name << ": no exception";
        } catch (const InvalidOperationException& e) {
            EXPECT_EQ(e.GetMessage(), OpenFailure(dir.Path(name)));
        }
        dir.Write(name, "x\n");
    }
}

TEST_F(SysFilePort, PrefixWithoutSeparatorRunsIntoTheFileName)
{
    settings.AddSetting("path.2.3.sysFile", dir.Path("eth0"));
    try {
        Make();
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), OpenFailure(dir.Path("eth0operstate")));
    }
}

TEST_F(SysFilePort, DescriptorsOpenedBeforeAFailureStayOpen)
{
    const int before = OpenDescriptorCount();
    dir.Remove("duplex");
    EXPECT_THROW(Make(), InvalidOperationException);
    // operstate and speed are left behind by the failed set-up.
    EXPECT_EQ(OpenDescriptorCount(), before + 2);
}

TEST_F(SysFilePort, DescriptorsLiveAsLongAsThePort)
{
    const int before = OpenDescriptorCount();
    auto port = Make();
    EXPECT_EQ(OpenDescriptorCount(), before + 3);
    // Files removed after set-up are still read through the open descriptors.
    dir.Remove("operstate");
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Up);
    port.reset();
    EXPECT_EQ(OpenDescriptorCount(), before);
}

} // namespace
