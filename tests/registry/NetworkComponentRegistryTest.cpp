// NetworkComponentRegistrationModule: an in-memory registry, so no kernel.
// Its order is byte-wise by name (the empty name first, upper case before
// lower case, a prefix before its extensions, a byte above 0x7f after all
// ASCII); its silent cases (a second registration, unknown names) change
// nothing and say so only at trace level; GetNetworkComponents logs nothing.
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace {

using namespace Zel::Test;
using Registry = Zel::Hardware::Modules::Nim::Linux::NetworkComponentRegistrationModule;
using Fields = const std::vector<std::string>&;

unsigned int Number(const std::string& text)
{
    return static_cast<unsigned int>(std::stoul(text));
}

// Each call by its word in calls.cases, its answer as the case writes it.
const std::map<std::string, std::function<std::string(Registry&, Fields)>> calls = {
    {"register", [](Registry& r, Fields w) { return r.RegisterNetworkComponent(w.at(1), Number(w.at(2))), "-"; }},
    {"unregister", [](Registry& r, Fields w) { return r.UnregisterNetworkComponent(w.at(1)), "-"; }},
    {"interface", [](Registry& r, Fields w) { return std::to_string(r.GetNetworkInterface(w.at(1))); }},
    {"components",
     [](Registry& r, Fields w) { return fmt::format("{}", fmt::join(r.GetNetworkComponents(Number(w.at(1))), "|")); }},
    {"setup", [](Registry& r, Fields) { return r.SetupSettings({}, {}), "-"; }},
    {"dispose", [](Registry& r, Fields) { return r.Dispose(), "-"; }},
    {"enabled", [](Registry& r, Fields) { return std::to_string(r.IsEnabled()); }},
};

TEST(NetworkComponentRegistry, CallsAnswerAndLogAsTheCasesSay)
{
    for (const Case& c : Cases("calls.cases")) {
        SCOPED_TRACE(c.name);
        Registry registry;
        LogCapture capture(8);
        std::string answers;
        for (const std::string& line : c.Lines("calls")) {
            try {
                const auto words = Words(Unescape(line));
                answers += calls.at(words.at(0))(registry, words) + "\n";
            } catch (const Zel::System::Commons::Exception& e) {
                answers += "throws " + e.GetMessage() + "\n";
            }
        }
        EXPECT_EQ(answers, Unescape(c["answers"]));
        EXPECT_EQ(capture.Text(), c["messages"]);
        for (const LogRecord& record : capture.Records()) {
            EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.NetworkComponentRegistrationModule");
        }
    }
}

} // namespace
