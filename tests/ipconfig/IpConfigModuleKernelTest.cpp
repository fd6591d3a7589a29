// The IP configuration module on the real /etc/network/interfaces, inside
// the network sandbox (a private tmpfs over /etc/network). Device 1 is eth0
// and device 2 eth1 by a stand-in Ethernet information module; the plug-in's
// own one serves the module in the stress test.
#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim;
using namespace Zel::Test;

const std::string interfacesFile = "/etc/network/interfaces";
const std::string temporaryFile = "/etc/network/interfaces.tmp";

const Case files = Cases("module.cases").at(0);
const std::string& controllerFile = files["file"];

class IpConfigModuleSandbox : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        std::remove(interfacesFile.c_str());
        std::remove(temporaryFile.c_str());
        provider.AddHardwareModule(ethernet);
        ipConfig.SetupSettings(ModuleSettings(), provider);
    }

    StandInEthernetInfo ethernet{{"eth0", "eth1"}, StandInEthernetInfo::BadNumber::Throws};
    HardwareModuleProvider provider;
    Zel::Hardware::Modules::Nim::Linux::IpConfigModule ipConfig;
};

// A module whose Ethernet module names any device number, and had two
// devices when the module was set up.
struct NamingEveryDevice {
    NamingEveryDevice()
    {
        provider.AddHardwareModule(ethernet);
        ipConfig.SetupSettings(ModuleSettings(), provider);
        ethernet.deviceCount = 3; // the count is taken once, at set-up
    }
    StandInEthernetInfo ethernet{{"eth0", "eth1"}, StandInEthernetInfo::BadNumber::AnswersName};
    HardwareModuleProvider provider;
    Zel::Hardware::Modules::Nim::Linux::IpConfigModule ipConfig;
};

using Module = Zel::Hardware::Modules::Nim::Linux::IpConfigModule;
using Value = const std::string&;

std::string Code(AccessErrorCode code)
{
    return std::to_string(static_cast<int>(code));
}

// Each getter and setter by name, its answer as text.
const std::map<std::string, std::function<std::string(Module&, unsigned int, Value)>> calls = {
    {"GetIpAddress", [](Module& m, unsigned int d, Value) { return m.GetIpAddress(d); }},
    {"GetDeviceIpAddress", [](Module& m, unsigned int d, Value) { return m.GetDeviceIpAddress(d); }},
    {"GetSubnetMask", [](Module& m, unsigned int d, Value) { return m.GetSubnetMask(d); }},
    {"GetDefaultGateway", [](Module& m, unsigned int d, Value) { return m.GetDefaultGateway(d); }},
    {"GetDnsNameservers", [](Module& m, unsigned int d, Value) { return m.GetDnsNameservers(d); }},
    {"GetIpAssignMode",
     [](Module& m, unsigned int d, Value) { return std::to_string(static_cast<int>(m.GetIpAssignMode(d))); }},
    {"SetIpAddress", [](Module& m, unsigned int d, Value v) { return Code(m.SetIpAddress(d, v)); }},
    {"SetDeviceIpAddress", [](Module& m, unsigned int d, Value v) { return Code(m.SetDeviceIpAddress(d, v)); }},
    {"SetSubnetMask", [](Module& m, unsigned int d, Value v) { return Code(m.SetSubnetMask(d, v)); }},
    {"SetDefaultGateway", [](Module& m, unsigned int d, Value v) { return Code(m.SetDefaultGateway(d, v)); }},
    {"SetDnsNameservers", [](Module& m, unsigned int d, Value v) { return Code(m.SetDnsNameservers(d, v)); }},
    {"SetIpAssignMode",
     [](Module& m, unsigned int d, Value v) { return Code(m.SetIpAssignMode(d, IpAssignMode(std::stoi(v)))); }},
};

// Every message of every level is pinned, so a changed character of a trace
// or a message where none belongs fails its row.
TEST_F(IpConfigModuleSandbox, EveryCallAnswersLogsAndWritesAsItsCaseSays)
{
    NamingEveryDevice naming;
    for (const Case& c : Cases("calls.cases")) {
        SCOPED_TRACE(c.name);
        const std::string before = c.Has("file") ? c["file"] : controllerFile;
        std::remove(temporaryFile.c_str());
        std::remove(interfacesFile.c_str());
        if (!c.Has("no file")) {
            WriteFile(interfacesFile, before);
        }
        // /etc covered by an empty tmpfs: a board without /etc/network.
        const bool noDirectory = c.Has("without /etc/network");
        ASSERT_TRUE(!noDirectory || ::mount("none", "/etc", "tmpfs", 0, nullptr) == 0);
        std::istringstream call(c.Line("call"));
        std::string name, value;
        unsigned int device = 0;
        call >> name >> device;
        call.get(); // the blank before the value, which may be blank or hold any byte
        value.assign(std::istreambuf_iterator<char>(call), {});
        LogCapture capture(8);
        std::string answer;
        try {
            answer = calls.at(name)(c.Has("stand-in names every device") ? naming.ipConfig : ipConfig, device, value);
        } catch (const Zel::System::Commons::Exception& e) {
            answer = "throws " + std::string(e.GetMessage());
        } catch (const std::out_of_range&) {
            answer = "throws out of range";
        }
        const std::string messages = capture.Text();
        ASSERT_TRUE(!noDirectory || ::umount2("/etc", 0) == 0);
        EXPECT_EQ(c.Line("answer"), answer);
        EXPECT_EQ(c["messages"], messages);
        EXPECT_EQ(c.Has("no file")          ? "none"
                      : c.Has("file after") ? c["file after"]
                                            : before,
                  std::filesystem::exists(interfacesFile) ? ReadFile(interfacesFile) : "none");
        // Only a missing file leaves the temporary file: empty, and root's alone.
        struct stat info {};
        const bool left = ::stat(temporaryFile.c_str(), &info) == 0;
        EXPECT_EQ(c.Has("no file") && name.rfind("Set", 0) == 0 && !noDirectory, left);
        EXPECT_TRUE(!left || (info.st_size == 0 && (info.st_mode & 07777) == 0600));
    }
}

} // namespace
