// Reading and writing temporary interfaces files: the line rules of one
// ReadIpPara or WriteIpPara call, with the trace line each call writes, are
// the rows of cases/read.cases and cases/write.cases. Values that cannot be
// written and a missing file or directory are rows of the module's calls
// (cases/calls.cases); links, mounts and failures of the temporary file are
// the writer kernel tests.
#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using namespace Zel::Test;

class IpConfigFileAccessTest : public ::testing::Test {
protected:
    ScratchDirectory temp;
    std::string file = temp.Path("interfaces");
    IpConfigFileAccess access{{"address", "netmask", "gateway", "dns-nameservers"}, file};
};

TEST_F(IpConfigFileAccessTest, ReadFindsTheValueByTheLineRules)
{
    for (const auto& c : Cases("read.cases")) {
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
        // The value as the caller has it after the call, found or not.
        EXPECT_EQ(1u, capture.Count(8, "IpConfigFileAccess::ReadIpPara(): Read " + value + " from " + key));
    }
}

TEST_F(IpConfigFileAccessTest, WriteGivesTheExpectedFileAndResult)
{
    for (const auto& c : Cases("write.cases")) {
        SCOPED_TRACE(c.name);
        std::istringstream call(c["call"]);
        std::string interfaceName, key, value;
        call >> interfaceName >> key;
        std::getline(call >> std::ws, value);
        const int result = std::stoi(c["result"]);
        WriteFile(file, c["before"]);
        LogCapture capture(8);
        EXPECT_EQ(result, access.WriteIpPara(interfaceName, key, value));
        EXPECT_EQ(result == 0 ? c["after"] : c["before"], ReadFile(file));
        EXPECT_FALSE(std::filesystem::exists(file + ".tmp"));
        EXPECT_EQ(1u, capture.Count(8, "IpConfigFileAccess::WriteIpPara(): Write " + value + " to " + key));
    }
}

} // namespace
