#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"
#include "PortTestSupport.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSwitchKSZ8794;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::Ports::ScratchDirectory;

// Device 1, port 4 of a switch whose driver publishes per-port files.
class Ksz8794DriverPort : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir.Write("port4_speed", "100\n");
        dir.Write("port4_duplex", "full-duplex\n");
        settings.AddSetting("path.1.4.speed", dir.Path("port4_speed"));
        settings.AddSetting("path.1.4.duplex", dir.Path("port4_duplex"));
    }

    std::unique_ptr<EthPortInfoSwitchKSZ8794> Make() const
    {
        return std::make_unique<EthPortInfoSwitchKSZ8794>(1, 4, settings);
    }
    // The one text of all three queries, naming the speed file.
    std::string ReadFailure(int error) const
    {
        return "Error GetPortLinkState() for device 1, port 4 (" + dir.Path("port4_speed") + "): errno " +
               std::to_string(error);
    }

    ScratchDirectory dir;
    ModuleSettings settings;
    LogCapture capture{8};
};

struct SpeedFileCase {
    const char* text;
    LinkState state;
    LinkSpeed speed;
};

TEST_F(Ksz8794DriverPort, SpeedFileTable)
{
    const auto port = Make();
    // Every text but "unlinked" is a link; there is no gigabit value.
    for (const SpeedFileCase& c : {
             SpeedFileCase{"unlinked\n", LinkState::Down, LinkSpeed::Unknown},
             SpeedFileCase{"100\n", LinkState::Up, LinkSpeed::Speed100},
             SpeedFileCase{"10\n", LinkState::Up, LinkSpeed::Speed10},
             SpeedFileCase{"1000\n", LinkState::Up, LinkSpeed::Unknown},
             SpeedFileCase{"100", LinkState::Up, LinkSpeed::Unknown},
             SpeedFileCase{"unlinke", LinkState::Up, LinkSpeed::Unknown},
             SpeedFileCase{"", LinkState::Up, LinkSpeed::Unknown},
         }) {
        dir.Write("port4_speed", c.text);
        EXPECT_EQ(port->GetPortLinkState(), c.state) << '"' << c.text << '"';
        EXPECT_EQ(port->GetPortLinkSpeed(), c.speed) << '"' << c.text << '"';
    }
    EXPECT_TRUE(capture.Records().empty());
}

struct DuplexFileCase {
    const char* text;
    LinkDuplex expected;
};

TEST_F(Ksz8794DriverPort, DuplexFileTable)
{
    const auto port = Make();
    for (const DuplexFileCase& c : {
             DuplexFileCase{"unlinked\n", LinkDuplex::Unknown},
             DuplexFileCase{"full-duplex\n", LinkDuplex::Full},
             DuplexFileCase{"half-duplex\n", LinkDuplex::Half},
             DuplexFileCase{"full", LinkDuplex::Full},
             DuplexFileCase{"auto\n", LinkDuplex::Unknown},
         }) {
        dir.Write("port4_duplex", c.text);
        EXPECT_EQ(port->GetPortLinkDuplex(), c.expected) << '"' << c.text << '"';
    }
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(Ksz8794DriverPort, EveryReadFailureNamesTheSpeedFile)
{
    dir.MakeUnreadable("port4_speed");
    dir.MakeUnreadable("port4_duplex");
    const auto port = Make();
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, ReadFailure(21)), 3U);
    EXPECT_EQ(capture.Records().size(), 3U);
}

TEST_F(Ksz8794DriverPort, MissingSpeedFileStopsSetUp)
{
    dir.Remove("port4_speed");
    try {
        Make();
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "Could not open '" + dir.Path("port4_speed") + "' for read.");
    }
}

TEST_F(Ksz8794DriverPort, MissingDuplexFileIsOnlyNoticedByTheDuplexQuery)
{
    dir.Remove("port4_duplex");
    const auto port = Make();
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Up);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Speed100);
    EXPECT_TRUE(capture.Records().empty());

    // Created later, the file is still not read: the port holds no descriptor for it.
    dir.Write("port4_duplex", "full-duplex\n");
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, ReadFailure(9)), 2U); // EBADF on descriptor -1
    EXPECT_EQ(capture.Records().size(), 2U);
}

} // namespace
