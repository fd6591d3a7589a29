// IP status against the real kernel, inside the network sandbox with the
// interfaces of ipstatus.scenario: the access's queries as the rows of
// cases/kernel.cases, and the module over them.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <stdexcept>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;

const std::string longName = "ipstatus-abcdef"; // 15 characters

class KernelIpStatus : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }
};

TEST_F(KernelIpStatus, QueriesAnswerAndTraceAsTheCasesSay)
{
    using Query = int (IpStatusSocketAccess::*)(std::uint32_t, std::uint32_t, const BasicString&, BasicString&) const;
    const std::map<std::string, Query> queries = {{"address", &IpStatusSocketAccess::GetCurrentIpAdress},
                                                  {"netmask", &IpStatusSocketAccess::GetCurrentSubnetMask},
                                                  {"gateway", &IpStatusSocketAccess::GetCurrentDefaultGateway}};
    const IpStatusSocketAccess access;
    for (const auto& c : Zel::Test::Cases("kernel.cases")) {
        SCOPED_TRACE(c.name);
        // "<query> <interface>", or with "device <n> of <count>" (device 1 of 1).
        std::istringstream words(c.Line("query"));
        std::string query, name, word;
        std::uint32_t device = 1, count = 1;
        words >> query >> name >> word >> device >> word >> count;
        Zel::Test::LogCapture capture(8);
        BasicString result("unchanged");
        const int status = (access.*queries.at(query))(device, count, name, result);
        EXPECT_EQ(fmt::format("{} {}\n", status, result), c["answer"]);
        EXPECT_EQ(capture.Text(), c["trace"]);
    }
    // The kernel keeps interface names to 15 characters, so its route table
    // never holds a longer one, as the cases take for granted.
    EXPECT_NE(Zel::Test::Run("ip link add " + longName + "g type veth peer name ipsrefused 2>/dev/null"), 0);
}

// The module over a stand-in Ethernet module naming the scenario's
// interfaces, which counted all four or, as a case says, fewer at set-up.
TEST_F(KernelIpStatus, TheModuleAnswersAndLogsAsTheCasesSay)
{
    for (const auto& c : Zel::Test::Cases("module.cases")) {
        SCOPED_TRACE(c.name);
        Zel::Test::StandInEthernetInfo ethernet({"ips0", "ips1", "ips2", longName},
                                                Zel::Test::StandInEthernetInfo::BadNumber::Throws);
        ethernet.deviceCount =
            c.Has("counted at set-up") ? static_cast<unsigned int>(std::stoi(c.Line("counted at set-up"))) : 4U;
        HardwareModuleProvider provider;
        provider.AddHardwareModule(ethernet);
        IpStatusModule module;
        module.SetupSettings(ModuleSettings(), provider);
        const auto device = static_cast<unsigned int>(std::stoul(c.Line("device")));
        Zel::Test::LogCapture capture(8);
        std::string answers;
        for (const auto query : {&IpStatusModule::GetIpAddress, &IpStatusModule::GetDeviceIpAddress,
                                 &IpStatusModule::GetSubnetMask, &IpStatusModule::GetDefaultGateway}) {
            try {
                answers += (module.*query)(device) + "\n";
            } catch (const Zel::System::Commons::Exception& e) {
                answers += "throws " + e.GetMessage() + "\n";
            } catch (const std::out_of_range&) {
                answers += "throws out of range\n";
            }
        }
        EXPECT_EQ(answers, c["answers"]);
        EXPECT_EQ(capture.Text(), c["messages"]);
    }
}

} // namespace
