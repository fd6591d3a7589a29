// EthernetInfoModule::SetupSettings on arbitrary configuration.
//
// An input is text, one directive per line:
//   M <text>             "mandatoryInterfaces" = text
//   T                    an "interfaces" table exists (possibly empty)
//   L c1|c2|c3|...       a table line; columns split at '|', any number of them
//   K <key>=<value>      any other setting, e.g. K path.1.1.sysFile=@/sys/good/
// In column texts "$0".."$9" stand for the machine's interface names (in the
// kernel's order). Values of "path." keys are confined to the fuzzer's own
// files, so a run cannot open device nodes or FIFOs of the machine:
//   @/...      a temporary tree of attribute, driver and GPIO files
//   @spi       (".spi" keys only) a regular file standing in for a spidev node
//   $sysN...   /sys/class/net/<interface N>/ followed by the rest
//   other      <temporary tree>/free/<text>, which does not exist
// ".." is neutralised in every path value.
//
// Outcomes allowed: success, or one of the exception classes set-up
// documents. Afterwards every query on every device built must answer without
// throwing and with a valid code. Anything else aborts.
//
// Descriptors: a port constructor that throws leaves its earlier descriptors
// open (kept behaviour), and a failed MAC ioctl keeps its socket. So that a
// long run does not run out of descriptors, every descriptor opened during an
// input and still open after the module is gone is closed, except the SPI
// stand-in, which the SPI port classes keep in their static descriptor by
// design. RLIMIT_NOFILE is also raised to its hard limit.
#include "fuzz/support/FuzzSupport.hpp"

#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "tests/support/CaseFile.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <net/if.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <typeinfo>

namespace {

using namespace Zel::System::Commons;
using Zel::Fuzz::Fail;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
namespace fs = std::filesystem;

constexpr std::size_t maxLines = 16;
// A port count is a number of objects built; the table describes hardware,
// so counts beyond this are not fed (4294967295 ports would only measure the
// allocator).
constexpr unsigned long maxPortCount = 64;

const Zel::Test::ScratchDirectory* tree; // the temporary tree behind "@/"
std::string spiPath; // the spidev stand-in behind "@spi"
struct stat spiInfo {};
std::vector<std::string> interfaces;

void CreateFiles()
{
    tree = &Zel::Fuzz::TemporaryDirectory("zel-fuzz-settings");
    // A directory where an attribute file is expected, and a plain one.
    for (const char* dir : {"sys/unreadable/operstate", "dir", "free"}) {
        fs::create_directories(tree->Path(dir));
    }
    auto files = Zel::Test::Cases("tree.cases").at(0).sections;
    files.erase(""); // the case's unnamed section
    for (const auto& [path, content] : files) {
        fs::create_directories(fs::path(tree->Path(path)).parent_path());
        Zel::Test::WriteFile(tree->Path(path), content);
    }
    // Kept apart from "@/", whose paths must never reach it.
    spiPath = Zel::Fuzz::TemporaryDirectory("zel-fuzz-spi").Write("spidev0.0", std::string(3, '\0'));
    if (stat(spiPath.c_str(), &spiInfo) != 0) {
        Fail("cannot create the SPI stand-in");
    }
}

// The numbers of the open descriptors.
std::set<int> OpenDescriptors()
{
    std::set<int> open;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        open.insert(std::atoi(entry.path().filename().c_str()));
    }
    return open;
}

void CloseLeakedDescriptors(const std::set<int>& before)
{
    // The listing's own descriptor is closed already; closing it again only fails.
    for (const int fd : OpenDescriptors()) {
        struct stat info {};
        const bool spi = fstat(fd, &info) == 0 && info.st_dev == spiInfo.st_dev && info.st_ino == spiInfo.st_ino;
        if (before.count(fd) == 0 && !spi) {
            close(fd);
        }
    }
}

std::string Neutralise(std::string text)
{
    for (std::size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at)) {
        text.replace(at, 2, "__");
    }
    return text;
}

// The machine's interface with the number at text[at], or nullptr.
const std::string* InterfaceAt(const std::string& text, std::size_t at)
{
    if (at >= text.size() || text[at] < '0' || text[at] > '9') {
        return nullptr;
    }
    const auto index = static_cast<std::size_t>(text[at] - '0');
    return index < interfaces.size() ? &interfaces[index] : nullptr;
}

std::string ExpandInterfaces(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string* name = text[i] == '$' ? InterfaceAt(text, i + 1) : nullptr;
        out += name != nullptr ? *name : std::string(1, text[i]);
        i += name != nullptr ? 1 : 0;
    }
    return out;
}

std::string ExpandPath(const std::string& key, const std::string& value)
{
    const bool spiKey = key.size() >= 4 && key.compare(key.size() - 4, 4, ".spi") == 0;
    if (value.rfind("@spi", 0) == 0 && spiKey) {
        return spiPath + Neutralise(value.substr(4));
    }
    if (value.rfind("@/", 0) == 0) {
        return tree->Path(Neutralise(value.substr(2)));
    }
    if (const std::string* name = value.rfind("$sys", 0) == 0 ? InterfaceAt(value, 4) : nullptr) {
        return "/sys/class/net/" + *name + "/" + Neutralise(value.substr(5));
    }
    return tree->Path("free/" + Neutralise(value));
}

struct Input {
    ModuleSettings settings;
    std::vector<std::vector<std::string>> lines;
};

bool Decode(const std::string& text, Input& input)
{
    bool hasTable = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string rest = line.size() > 2 ? line.substr(2) : std::string();
        const char directive = line.empty() ? ' ' : line[0];
        hasTable = hasTable || directive == 'T' || directive == 'L';
        if (directive == 'M') {
            input.settings.AddSetting("mandatoryInterfaces", BasicString(rest));
        } else if (directive == 'L' && input.lines.size() < maxLines) {
            std::vector<std::string> columns;
            for (const std::string& column : Zel::Test::Words(rest)) {
                columns.push_back(ExpandInterfaces(column));
            }
            if (columns.size() >= 4 && std::strtoul(columns[3].c_str(), nullptr, 0) > maxPortCount) {
                return false;
            }
            input.lines.push_back(std::move(columns));
        } else if (directive == 'K') {
            const std::size_t equals = rest.find('=');
            const std::string key = rest.substr(0, equals);
            const std::string value = equals == std::string::npos ? std::string() : rest.substr(equals + 1);
            input.settings.AddSetting(BasicString(key),
                                      BasicString(key.rfind("path.", 0) == 0 ? ExpandPath(key, value) : value));
        }
    }
    if (hasTable) {
        SettingField table("interfaces");
        for (const auto& columns : input.lines) {
            table.AddLine(std::vector<BasicString>(columns.begin(), columns.end()));
        }
        input.settings.AddSettingField("interfaces", table);
    }
    return true;
}

// Set-up fails only with the exception classes it documents; their exact
// texts are pinned by the Ethernet set-up tests.
void ExpectDocumented(const std::string& type, const std::string& message)
{
    static const std::set<std::string> documented{"InvalidConfigException", "InvalidOperationException",
                                                  "ArgumentException", "NotSupportedException"};
    if (documented.count(type) == 0 || message.empty()) {
        Fail("undocumented outcome " + type + ": " + message);
    }
}

// Every device built is a complete entry of a leading table line.
void CheckDevices(const Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule& module, const Input& input)
{
    const unsigned int count = module.GetDeviceCount();
    if (count > input.lines.size()) {
        Fail("more devices than table lines");
    }
    for (unsigned int d = 1; d <= count; ++d) {
        const auto& columns = input.lines[d - 1];
        const std::string device = "device " + std::to_string(d);
        if (module.GetInterfaceName(d) != columns.at(2) || module.GetPublicInterfaceName(d) != columns.at(1)) {
            Fail(device + " does not hold its table line's names");
        }
        module.GetMacAddress(d);
        const unsigned int ports = module.GetPortCount(d);
        if (ports != static_cast<unsigned int>(std::strtoul(columns.at(3).c_str(), nullptr, 0))) {
            Fail(device + " has another port count than configured");
        }
        module.GetInterfaceType(d);
        for (unsigned int p = 1; p <= ports; ++p) {
            const auto state = static_cast<int>(module.GetPortLinkState(d, p));
            const auto speed = static_cast<int>(module.GetPortLinkSpeed(d, p));
            const auto duplex = static_cast<int>(module.GetPortLinkDuplex(d, p));
            module.GetPortPublicName(d, p);
            if (!(state == 0 || state == 1 || state == 255) || speed < 0 || speed > 3 || duplex < 0 || duplex > 2) {
                Fail("link code out of range on " + device);
            }
        }
    }
}

void RunOne(const Input& input)
{
    Zel::Hardware::Commons::Modules::HardwareModuleProvider provider;
    Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule module;
    try {
        module.SetupSettings(input.settings, provider);
    } catch (const Exception& e) {
        const std::string type = Diagnostics::RuntimeTypeInfo::DemangleSymbol(typeid(e).name());
        ExpectDocumented(type.substr(type.rfind(':') + 1), e.GetMessage());
    } catch (const std::exception& e) {
        Fail(std::string("unexpected exception: ") + e.what());
    }
    CheckDevices(module, input);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    CreateFiles();
    if (struct if_nameindex* list = if_nameindex()) {
        for (const struct if_nameindex* entry = list; entry->if_index != 0; ++entry) {
            interfaces.emplace_back(entry->if_name);
        }
        if_freenameindex(list);
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    Zel::Fuzz::SetUpLogging();
    std::fprintf(stderr, "settings fuzzer: tree %s, SPI stand-in %s, %zu interfaces\n", tree->Path("").c_str(),
                 spiPath.c_str(), interfaces.size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input;
    if (!Decode(std::string(reinterpret_cast<const char*>(data), size), input)) {
        return -1; // not added to the corpus
    }
    const auto before = OpenDescriptors();
    RunOne(input);
    CloseLeakedDescriptors(before);
    return 0;
}
