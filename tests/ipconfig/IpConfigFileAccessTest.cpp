// Reading and writing temporary interfaces files: the line rules of one
// ReadIpPara or WriteIpPara call are the rows of cases/read.cases and
// cases/write.cases; the refusal of values that cannot be written and the
// trace lines are here. A missing file is a module kernel test; links,
// mounts and failures of the temporary file are the writer kernel tests.
#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using Zel::Test::LogCapture;
using namespace Zel::Test::IpConfig;

const std::string twoInterfaces = "auto lo\niface lo inet loopback\n\n"
                                  "auto eth0\niface eth0 inet static\n    address 192.168.1.10\n"
                                  "    netmask 255.255.255.0\n    gateway 192.168.1.1\n\n"
                                  "allow-hotplug eth1\niface eth1 inet dhcp\n";

class IpConfigFileAccessTest : public ::testing::Test {
protected:
    ScratchDirectory temp;
    std::string file = temp.Path("interfaces");
    IpConfigFileAccess access{parameterOrder, file};
};

TEST_F(IpConfigFileAccessTest, ReadFindsTheValueByTheLineRules)
{
    for (const auto& c : Zel::Test::Cases("read.cases")) {
        SCOPED_TRACE(c.name);
        WriteFile(file, c["file"]);
        std::istringstream call(c["call"]);
        std::string interfaceName, key;
        call >> interfaceName >> key;
        BasicString value("unchanged");
        LogCapture capture(8);
        if (c["result"] == "out_of_range\n") {
            EXPECT_THROW(access.ReadIpPara(interfaceName, key, value), std::out_of_range);
            EXPECT_TRUE(capture.Records().empty());
            continue;
        }
        EXPECT_EQ(std::stoi(c["result"]), access.ReadIpPara(interfaceName, key, value));
        EXPECT_EQ(c.Has("value") ? c["value"] : "unchanged", value);
    }
}

TEST_F(IpConfigFileAccessTest, WriteGivesTheExpectedFileAndResult)
{
    for (const auto& c : Zel::Test::Cases("write.cases")) {
        SCOPED_TRACE(c.name);
        std::istringstream call(c["call"]);
        std::string interfaceName, key, value;
        call >> interfaceName >> key;
        std::getline(call >> std::ws, value);
        const int result = std::stoi(c["result"]);
        ASSERT_EQ(result == 0, c.Has("after")) << "only a successful write has a file after";
        WriteFile(file, c["before"]);
        EXPECT_EQ(result, access.WriteIpPara(interfaceName, key, value));
        EXPECT_EQ(result == 0 ? c["after"] : c["before"], ReadFile(file));
        EXPECT_FALSE(Exists(file + ".tmp"));
    }
}
TEST_F(IpConfigFileAccessTest, ReadAndWriteTraceValueAndKey)
{
    WriteFile(file, twoInterfaces);
    LogCapture capture(8);
    BasicString value;
    BasicString missing("keep");
    ASSERT_EQ(0, access.ReadIpPara("eth0", "netmask", value));
    ASSERT_EQ(1, access.ReadIpPara("eth0", "mtu", missing));
    ASSERT_EQ(0, access.WriteIpPara("eth0", "gateway", "192.168.1.254"));
    ASSERT_EQ(3u, capture.Records().size());
    EXPECT_EQ("Zel.Hardware.Modules.Commons.Linux.IpConfigFileAccess", capture.Records()[0].channel);
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::ReadIpPara(): Read 255.255.255.0 from netmask"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::ReadIpPara(): Read keep from mtu"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::WriteIpPara(): Write 192.168.1.254 to gateway"));
}

TEST_F(IpConfigFileAccessTest, UnwritableValuesAreRefused)
{
    for (const auto& c : Zel::Test::Cases("refused.cases")) {
        for (const std::string key : {"address", "inet"}) {
            SCOPED_TRACE(c.name + ", " + key);
            WriteFile(file, twoInterfaces);
            LogCapture capture(8);
            EXPECT_EQ(1, access.WriteIpPara("eth0", key, c["value"]));
            EXPECT_EQ(twoInterfaces, ReadFile(file));
            EXPECT_FALSE(Exists(file + ".tmp"));
            ASSERT_EQ(1u, capture.Records().size());
            EXPECT_EQ("IpConfigFileAccess::WriteIpPara(): Refused value for " + key + ": " + c["reason"],
                      capture.Records()[0].text + "\n");
            EXPECT_EQ(3, capture.Records()[0].level);
        }
    }
}

} // namespace
