// The ports that read attribute files: sysfs ports (device 2, port 3) and
// KSZ8794 driver-file ports (device 1, port 4), on scratch files that the
// tests rewrite between queries.
#include "Checks.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"
#include "ScratchDirectory.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <array>
#include <memory>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSwitchKSZ8794;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSysFile;
using Zel::Hardware::Modules::Nim::Linux::Internal::IEthPortInfo;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::OpenDescriptorCount;

enum Query { State, Speed, Duplex };

int Ask(const IEthPortInfo& port, Query query)
{
    return query == State ? static_cast<int>(port.GetPortLinkState())
        : query == Speed  ? static_cast<int>(port.GetPortLinkSpeed())
                          : static_cast<int>(port.GetPortLinkDuplex());
}

struct FileCase {
    Query query;
    const char* text;
    int expected;
};

class FilePort : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char* name : {"operstate", "speed", "duplex"}) {
            dir.Write(name, "x\n");
        }
        dir.Write("port4_speed", "100\n");
        dir.Write("port4_duplex", "full-duplex\n");
        settings.AddSetting("path.2.3.sysFile", dir.Path(""));
        settings.AddSetting("path.1.4.speed", dir.Path("port4_speed"));
        settings.AddSetting("path.1.4.duplex", dir.Path("port4_duplex"));
    }
    std::unique_ptr<EthPortInfoSysFile> SysFile() const { return std::make_unique<EthPortInfoSysFile>(2, 3, settings); }
    std::unique_ptr<EthPortInfoSwitchKSZ8794> Driver() const
    {
        return std::make_unique<EthPortInfoSwitchKSZ8794>(1, 4, settings);
    }
    // files: the file each query reads.
    void ExpectDecoding(const IEthPortInfo& port, const std::array<const char*, 3>& files,
                        std::initializer_list<FileCase> cases)
    {
        for (const FileCase& c : cases) {
            dir.Write(files[c.query], c.text);
            EXPECT_EQ(Ask(port, c.query), c.expected) << files[c.query] << " \"" << c.text << '"';
        }
        EXPECT_TRUE(capture.Records().empty()) << "only read failures are reported";
    }
    template <typename Make>
    static void ExpectOpenFailure(Make make, const std::string& file)
    {
        Zel::Test::ExpectThrow<InvalidOperationException>(make, "Could not open '" + file + "' for read.");
    }

    Zel::Test::ScratchDirectory dir;
    ModuleSettings settings;
    Zel::Test::LogCapture capture{8};
};

TEST_F(FilePort, SysFileDecodingTable)
{
    // The line feed ends the known words and numbers; the rest is unknown (state 255, others 0).
    ExpectDecoding(*SysFile(), {"operstate", "speed", "duplex"},
                   {{State, "up\n", 1},
                    {State, "down\n", 0},
                    {State, "unknown\n", 255},
                    {State, "lowerlayerdown\n", 255},
                    {State, "dormant\n", 255},
                    {State, "up", 1},
                    {State, "dow", 255},
                    {State, "", 255},
                    {Speed, "-1\n", 0},
                    {Speed, "10\n", 1},
                    {Speed, "100\n", 2},
                    {Speed, "1000\n", 3},
                    {Speed, "2500\n", 0},
                    {Speed, "10000\n", 0},
                    {Speed, "1000", 0},
                    {Speed, "100", 0},
                    {Speed, "", 0},
                    {Duplex, "full\n", 2},
                    {Duplex, "half\n", 1},
                    {Duplex, "unknown\n", 0},
                    {Duplex, "ful", 0},
                    {Duplex, "", 0}});
}

TEST_F(FilePort, DriverFileDecodingTable)
{
    // Every speed text but "unlinked" is a link; there is no gigabit value.
    ExpectDecoding(*Driver(), {"port4_speed", "port4_speed", "port4_duplex"},
                   {{State, "unlinked\n", 0},
                    {Speed, "unlinked\n", 0},
                    {State, "100\n", 1},
                    {Speed, "100\n", 2},
                    {Speed, "10\n", 1},
                    {Speed, "1000\n", 0},
                    {State, "1000\n", 1},
                    {Speed, "100", 0},
                    {State, "unlinke", 1},
                    {State, "", 1},
                    {Speed, "", 0},
                    {Duplex, "unlinked\n", 0},
                    {Duplex, "full-duplex\n", 2},
                    {Duplex, "half-duplex\n", 1},
                    {Duplex, "full", 2},
                    {Duplex, "auto\n", 0}});
}

// Every query's message names GetPortLinkState: the framework's log filters match that text.
TEST_F(FilePort, FailedReadsGiveUnknownCodesAndOneMessagePerQuery)
{
    for (const char* name : {"operstate", "speed", "duplex", "port4_speed", "port4_duplex"}) {
        dir.MakeUnreadable(name);
    }
    const auto sysFile = SysFile();
    const auto driver = Driver();
    for (const IEthPortInfo* port : std::initializer_list<const IEthPortInfo*>{sysFile.get(), driver.get()}) {
        EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
        EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
        EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    }
    EXPECT_EQ(sysFile->GetPortLinkState(), LinkState::Unknown);
    const std::string sysFileError = "Error GetPortLinkState() for device 2, port 3 (" + dir.Path("");
    EXPECT_EQ(capture.Count(3, sysFileError + "operstate): errno 21"), 2U);
    EXPECT_EQ(capture.Count(3, sysFileError + "speed): errno 21"), 1U);
    EXPECT_EQ(capture.Count(3, sysFileError + "duplex): errno 21"), 1U);
    // The driver-file port names its speed file in all three.
    EXPECT_EQ(
        capture.Count(3, "Error GetPortLinkState() for device 1, port 4 (" + dir.Path("port4_speed") + "): errno 21"),
        3U);
    EXPECT_EQ(capture.Records().size(), 7U);
}

// A failed set-up leaves the files opened before the missing one open; a
// built port holds its files until it is destroyed.
TEST_F(FilePort, DescriptorsOfSetUpAndOfThePortsLife)
{
    const long before = OpenDescriptorCount();
    for (const char* name : {"operstate", "speed", "duplex"}) {
        dir.Remove(name);
        ExpectOpenFailure([this] { SysFile(); }, dir.Path(name));
        dir.Write(name, "up\n");
    }
    EXPECT_EQ(OpenDescriptorCount(), before + 3) << "operstate, then operstate and speed";
    dir.Remove("port4_speed");
    ExpectOpenFailure([this] { Driver(); }, dir.Path("port4_speed"));
    dir.Write("port4_speed", "100\n");

    auto sysFile = SysFile();
    auto driver = Driver();
    EXPECT_EQ(OpenDescriptorCount(), before + 8);
    dir.Remove("operstate");
    EXPECT_EQ(sysFile->GetPortLinkState(), LinkState::Up) << "read through the descriptor opened at set-up";
    sysFile.reset();
    driver.reset();
    EXPECT_EQ(OpenDescriptorCount(), before + 3);

    // The prefix is used as written: without a separator it runs into the file name.
    settings.AddSetting("path.2.3.sysFile", dir.Path("eth0"));
    ExpectOpenFailure([this] { SysFile(); }, dir.Path("eth0operstate"));
}

TEST_F(FilePort, DriverPortNeverChecksItsDuplexDescriptor)
{
    dir.Remove("port4_duplex");
    const auto port = Driver();
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Speed100);
    EXPECT_TRUE(capture.Records().empty());

    // Created later, the file is still not read: the port holds -1 for it.
    dir.Write("port4_duplex", "full-duplex\n");
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3,
                            "Error GetPortLinkState() for device 1, port 4 (" + dir.Path("port4_speed") + "): errno 9"),
              2U);
    EXPECT_EQ(capture.Records().size(), 2U);
}

} // namespace
