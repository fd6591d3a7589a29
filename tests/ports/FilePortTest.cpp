// The ports that read attribute files: sysfs ports (device 2, port 3) and
// KSZ8794 driver-file ports (device 1, port 4), on scratch files that the
// tests rewrite between queries.
#include "CaseFile.hpp"
#include "Checks.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"
#include "ScratchDirectory.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using namespace Zel::Hardware::Nim;
using Zel::System::Commons::InvalidOperationException;
using namespace Zel::Test;

// The code a query answers, by its name in the decoding cases.
int Ask(const IEthPortInfo& port, const std::string& query)
{
    return query == "state" ? static_cast<int>(port.GetPortLinkState())
        : query == "speed"  ? static_cast<int>(port.GetPortLinkSpeed())
                            : static_cast<int>(port.GetPortLinkDuplex());
}

class FilePort : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char* name : {"operstate", "speed", "duplex", "port4_duplex"}) {
            dir.Write(name, "x\n");
        }
        dir.Write("port4_speed", "100\n");
        settings.AddSetting("path.2.3.sysFile", dir.Path(""));
        settings.AddSetting("path.1.4.speed", dir.Path("port4_speed"));
        settings.AddSetting("path.1.4.duplex", dir.Path("port4_duplex"));
    }
    std::unique_ptr<IEthPortInfo> SysFile() const { return std::make_unique<EthPortInfoSysFile>(2, 3, settings); }
    std::unique_ptr<IEthPortInfo> Driver() const { return std::make_unique<EthPortInfoSwitchKSZ8794>(1, 4, settings); }

    ScratchDirectory dir;
    ModuleSettings settings;
    LogCapture capture{8};
};

TEST_F(FilePort, DecodingTables)
{
    const auto sysFile = SysFile();
    const auto driver = Driver();
    for (const auto& c : Cases("decoding.cases")) {
        for (const auto& row : c.Lines("rows")) {
            const auto fields = Words(row); // file|bytes|query|code
            dir.Write(fields.at(0), Unescape(fields.at(1)));
            EXPECT_EQ(Ask(c.name == "sysFile" ? *sysFile : *driver, fields.at(2)), std::stoi(fields.at(3)))
                << c.name << ": " << row;
        }
    }
    EXPECT_TRUE(capture.Records().empty()) << "only read failures are reported";
}

TEST_F(FilePort, FailedReadsGiveUnknownCodesAndOneMessagePerQuery)
{
    for (const char* name : {"operstate", "speed", "duplex", "port4_speed", "port4_duplex"}) {
        dir.MakeUnreadable(name);
    }
    const auto sysFile = SysFile();
    const auto driver = Driver();
    for (const auto& row : Cases("failures.cases").at(0).Lines("rows")) {
        SCOPED_TRACE(row);
        auto fields = Words(row); // port|query|code|message
        capture.Sink().Clear();
        EXPECT_EQ(Ask(fields.at(0) == "sysFile" ? *sysFile : *driver, fields.at(1)), std::stoi(fields.at(2)));
        EXPECT_EQ(capture.Count(3, fields.at(3).replace(fields.at(3).find("<dir>"), 5, dir.Path(""))), 1U);
        EXPECT_EQ(capture.Records().size(), 1U);
    }
}

// A failed set-up leaves the files opened before the missing one open; a
// built port holds its files until it is destroyed.
TEST_F(FilePort, DescriptorsOfSetUpAndOfThePortsLife)
{
    const long before = OpenDescriptorCount();
    for (const std::string name : {"operstate", "speed", "duplex", "port4_speed"}) {
        dir.Remove(name);
        ExpectThrow<InvalidOperationException>([&] { name == "port4_speed" ? (void)Driver() : (void)SysFile(); },
                                               "Could not open '" + dir.Path(name) + "' for read.");
        dir.Write(name, "up\n");
    }
    EXPECT_EQ(OpenDescriptorCount(), before + 3) << "operstate, then operstate and speed; the driver's speed is first";

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
    ExpectThrow<InvalidOperationException>([this] { SysFile(); },
                                           "Could not open '" + dir.Path("eth0operstate") + "' for read.");
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
    EXPECT_EQ(capture.Count(3,
                            "Error GetPortLinkState() for device 1, port 4 (" + dir.Path("port4_speed") + "): errno 9"),
              1U);
    EXPECT_EQ(capture.Records().size(), 1U);
}

} // namespace
