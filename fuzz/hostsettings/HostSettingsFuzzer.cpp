// nimhost's settings file loader and its check on arbitrary files (the input
// is the file), against a machine of lo, eth0, eth1 and eth10:
//   - loading and checking end normally or with a UsageError, nothing else;
//   - every problem the check reports, fault or warning, is one line
//     "file:line:column: key '...': what", at a position inside the file
//     (the missing Ethernet table, which has no position, names the file);
//   - a file the check passes gives settings whose text (nimhost settings)
//     loads again without throwing, to the same text, and passes the check
//     again.
#include "fuzz/support/FuzzSupport.hpp"

#include "settings/HostSettings.hpp"
#include "text/UsageError.hpp"

#include <algorithm>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Zel::Fuzz::Check;
using Zel::Tools::Nimhost::HostSettings;
using Zel::Tools::Nimhost::UsageError;

const std::vector<std::string> machine{"lo", "eth0", "eth1", "eth10"};
std::string path;
std::string printedPath;

// Every line of the check's problems has the position form, inside the file.
void CheckProblemLines(const std::string& problems, const std::string& text)
{
    static const std::regex positioned(R"((warning: )?(.*):([0-9]+):([0-9]+): key '.*': .+)");
    static const std::regex missingTable(R"((.*): table \[.*\] missing: .+)");
    const auto lines = static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n')) + 1;
    std::istringstream stream(problems);
    for (std::string line; std::getline(stream, line);) {
        std::smatch match;
        if (std::regex_match(line, match, positioned)) {
            Check(match[2] == path && std::stoul(match[3]) >= 1 && std::stoul(match[3]) <= lines &&
                      std::stoul(match[4]) >= 1,
                  "a problem's position is outside the file:", line);
        } else {
            Check(std::regex_match(line, match, missingTable) && match[1] == path,
                  "a problem without its position:", line);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (path.empty()) {
        path = Zel::Fuzz::SetUp("board.toml");
        printedPath = Zel::Fuzz::TemporaryDirectory("zel-settings-fuzz").Path("printed.toml");
    }
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    std::optional<HostSettings> settings;
    try {
        settings.emplace(HostSettings::LoadFile(path));
        for (const auto& warning : settings->Check(machine)) {
            CheckProblemLines(warning, text);
        }
    } catch (const UsageError& e) {
        // The loader's own faults (TOML syntax, value types) name the file too.
        Check(std::string(e.what()).rfind(path + ":", 0) == 0, "a fault without the file:", e.what());
        if (settings) {
            CheckProblemLines(e.what(), text);
        }
        return 0;
    }
    for (unsigned int device = 0; device <= 8; ++device) {
        settings->PortMode(device);
    }
    // What `nimhost settings` prints reads back to the same text and passes
    // the check again.
    const std::string printed = settings->ToToml();
    std::ofstream(printedPath, std::ios::binary | std::ios::trunc) << printed;
    try {
        const HostSettings again = HostSettings::LoadFile(printedPath);
        Check(again.ToToml() == printed, "the printed settings read back differently:", printed);
        again.Check(machine);
    } catch (const UsageError& e) {
        Zel::Fuzz::Fail(std::string("the printed settings are refused: ") + e.what() + "\n" + printed);
    }
    return 0;
}
