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
// Outcomes allowed: success, or one of the exceptions set-up documents with its
// exact message. Afterwards every query on every device built must answer
// without throwing and with a valid code. Anything else aborts.
//
// Descriptors: a port constructor that throws leaves its earlier descriptors
// open (kept behaviour), and a failed MAC ioctl keeps its socket. So that a
// long run does not run out of descriptors, every descriptor opened during an
// input and still open after the module is gone is closed, except the SPI
// stand-in, which the SPI port classes keep in their static descriptor by
// design. RLIMIT_NOFILE is also raised to its hard limit.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netpacket/packet.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::System::Commons::BasicString;

constexpr std::size_t maxLines = 16;
// A port count is a number of objects built; the table describes hardware,
// so counts beyond this are not fed (4294967295 ports would only measure the
// allocator).
constexpr unsigned long maxPortCount = 64;

class DroppingSink : public Zel::System::Commons::Logging::ILogSink {
public:
    void Write(int, std::string_view, std::string_view text) override { written += text.size(); }
    std::size_t written = 0;
};

struct Environment {
    std::string root;    // the temporary tree behind "@/"
    std::string spiPath; // the spidev stand-in behind "@spi"
    struct stat spiInfo {};
    std::vector<std::string> interfaces;
    std::unique_ptr<Zel::System::Commons::AppDomain> appDomain;
};

Environment* environment = nullptr;

[[noreturn]] void Fail(const std::string& what)
{
    std::string printable;
    for (const char c : what) {
        printable += (c >= 0x20 && c < 0x7F) ? std::string(1, c) : "\\x" + std::to_string(static_cast<unsigned char>(c));
    }
    std::fprintf(stderr, "settings fuzzer: %s\n", printable.c_str());
    std::fflush(stderr);
    std::abort();
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        Fail("cannot write " + path);
    }
}

std::string MakeTemporaryDirectory(const char* name)
{
    std::string pattern = std::string("/tmp/") + name + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        Fail("mkdtemp failed");
    }
    return pattern;
}

void CreateTree(Environment& env)
{
    env.root = MakeTemporaryDirectory("zel-fuzz-settings");
    for (const char* dir : {"/sys", "/sys/good", "/sys/down", "/sys/partial", "/sys/unreadable", "/ksz", "/gpio",
                            "/free", "/dir", "/sys/unreadable/operstate"}) {
        mkdir((env.root + dir).c_str(), 0755);
    }
    WriteFile(env.root + "/sys/good/operstate", "up\n");
    WriteFile(env.root + "/sys/good/speed", "1000\n");
    WriteFile(env.root + "/sys/good/duplex", "full\n");
    WriteFile(env.root + "/sys/down/operstate", "down\n");
    WriteFile(env.root + "/sys/down/speed", "-1\n");
    WriteFile(env.root + "/sys/down/duplex", "unknown\n");
    WriteFile(env.root + "/sys/partial/operstate", "up\n"); // speed and duplex missing
    WriteFile(env.root + "/sys/unreadable/speed", "100\n");
    WriteFile(env.root + "/sys/unreadable/duplex", "half\n");
    WriteFile(env.root + "/ksz/speed", "100\n");
    WriteFile(env.root + "/ksz/duplex", "full-duplex\n");
    WriteFile(env.root + "/ksz/unlinked", "unlinked");
    WriteFile(env.root + "/gpio/value", "1\n");
    WriteFile(env.root + "/gpio/low", "0\n");
    // Kept apart from "@/", whose paths must never reach it.
    env.spiPath = MakeTemporaryDirectory("zel-fuzz-spi") + "/spidev0.0";
    WriteFile(env.spiPath, std::string(3, '\0'));
    if (stat(env.spiPath.c_str(), &env.spiInfo) != 0) {
        Fail("cannot stat the SPI stand-in");
    }
}

std::vector<std::string> RealInterfaces()
{
    std::vector<std::string> names;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return names;
    }
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET) {
            names.emplace_back(entry->ifa_name);
        }
    }
    freeifaddrs(list);
    return names;
}

// ---- descriptors --------------------------------------------------------------

using DescriptorMap = std::map<int, std::pair<dev_t, ino_t>>;

DescriptorMap OpenDescriptors()
{
    DescriptorMap open;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        Fail("cannot list /proc/self/fd");
    }
    const int own = dirfd(dir);
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        const int fd = std::atoi(entry->d_name);
        struct stat info {};
        if (fd != own && fstat(fd, &info) == 0) {
            open[fd] = {info.st_dev, info.st_ino};
        }
    }
    closedir(dir);
    return open;
}

void CloseLeakedDescriptors(const DescriptorMap& before)
{
    for (const auto& [fd, identity] : OpenDescriptors()) {
        auto found = before.find(fd);
        if (found != before.end() && found->second == identity) {
            continue;
        }
        if (identity.first == environment->spiInfo.st_dev && identity.second == environment->spiInfo.st_ino) {
            continue; // the SPI port classes' static descriptor
        }
        close(fd);
    }
}

// ---- input decoding -----------------------------------------------------------

std::string Neutralise(std::string text)
{
    for (std::size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at)) {
        text.replace(at, 2, "__");
    }
    return text;
}

std::string ExpandInterfaces(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '$' && i + 1 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '9') {
            const auto index = static_cast<std::size_t>(text[i + 1] - '0');
            if (index < environment->interfaces.size()) {
                out += environment->interfaces[index];
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string ExpandPath(const std::string& key, const std::string& value)
{
    if (value.rfind("@spi", 0) == 0) {
        if (EndsWith(key, ".spi")) {
            return environment->spiPath + Neutralise(value.substr(4));
        }
        return environment->root + "/free/" + Neutralise(value);
    }
    if (value.rfind("@/", 0) == 0) {
        return environment->root + Neutralise(value.substr(1));
    }
    if (value.rfind("$sys", 0) == 0 && value.size() > 4 && value[4] >= '0' && value[4] <= '9') {
        const auto index = static_cast<std::size_t>(value[4] - '0');
        if (index < environment->interfaces.size()) {
            return "/sys/class/net/" + environment->interfaces[index] + "/" + Neutralise(value.substr(5));
        }
    }
    return environment->root + "/free/" + Neutralise(value);
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) {
            return parts;
        }
        start = end + 1;
    }
}

struct Input {
    ModuleSettings settings;
    std::vector<std::vector<std::string>> lines;
    bool hasTable = false;
};

bool Decode(const std::string& text, Input& input)
{
    for (const std::string& line : Split(text, '\n')) {
        if (line.size() < 1) {
            continue;
        }
        const std::string rest = line.size() > 2 ? line.substr(2) : std::string();
        switch (line[0]) {
        case 'M':
            input.settings.AddSetting("mandatoryInterfaces", BasicString(rest));
            break;
        case 'T':
            input.hasTable = true;
            break;
        case 'L': {
            input.hasTable = true;
            if (input.lines.size() >= maxLines) {
                break;
            }
            std::vector<std::string> columns;
            for (const std::string& column : Split(rest, '|')) {
                columns.push_back(ExpandInterfaces(column));
            }
            if (columns.size() >= 4 && std::strtoul(columns[3].c_str(), nullptr, 0) > maxPortCount) {
                return false;
            }
            input.lines.push_back(std::move(columns));
            break;
        }
        case 'K': {
            const std::size_t equals = rest.find('=');
            const std::string key = rest.substr(0, equals);
            const std::string value = equals == std::string::npos ? std::string() : rest.substr(equals + 1);
            input.settings.AddSetting(BasicString(key),
                                      BasicString(key.rfind("path.", 0) == 0 ? ExpandPath(key, value) : value));
            break;
        }
        default:
            break;
        }
    }
    if (input.hasTable) {
        SettingField table("interfaces");
        for (const auto& columns : input.lines) {
            table.AddLine(std::vector<BasicString>(columns.begin(), columns.end()));
        }
        input.settings.AddSettingField("interfaces", table);
    }
    return true;
}

// ---- outcomes -----------------------------------------------------------------

// '*' matches any text (also empty, also with zero bytes), '#' one or more
// decimal digits; everything else itself.
bool Matches(std::string_view pattern, std::string_view text)
{
    if (pattern.empty()) {
        return text.empty();
    }
    if (pattern[0] == '*') {
        for (std::size_t skip = 0; skip <= text.size(); ++skip) {
            if (Matches(pattern.substr(1), text.substr(skip))) {
                return true;
            }
        }
        return false;
    }
    if (pattern[0] == '#') {
        std::size_t digits = 0;
        while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') {
            ++digits;
            if (Matches(pattern.substr(1), text.substr(digits))) {
                return true;
            }
        }
        return false;
    }
    return !text.empty() && pattern[0] == text[0] && Matches(pattern.substr(1), text.substr(1));
}

bool MatchesAny(const std::vector<const char*>& patterns, const std::string& message)
{
    for (const char* pattern : patterns) {
        if (Matches(pattern, message)) {
            return true;
        }
    }
    return false;
}

const std::vector<const char*> configMessages = {
    "Wrong interface index # found, expected #",
    "Number of port names # does not match port count! #",
    "Setting '*' is not configured",
    "Setting field 'interfaces' has no line # column #",
};
const std::vector<const char*> operationMessages = {
    "Could not find interface *",
    "Could not open '*' for read.",
    "Could not open '*': *",
    "Could not open driver '*'.",
    "Could not read driver KSZ8863_REG_CHIP_ID0.",
    "Could not open socket for read Ethernet port info",
    "Could not read current interface list:  errno #",
    "Could not open socket for read mac info from '*': errno #",
    "Could not read mac info from '*': errno #",
};
const std::vector<const char*> argumentMessages = {
    "Invalid argument 'mode' = '*': Unknown mode",
    "Invalid argument 'NetworkInterfaceType' = '*': Unknown network interface type",
    "Invalid argument 'port' = '#': unsupported",
};
const std::vector<const char*> notSupportedMessages = {
    "KSZ8794: Chip id0 mismatch.",
    "KSZ8794: Chip id1 mismatch.",
    "KSZ8863: Chip id0 mismatch.",
    "KSZ8863: Chip id1 mismatch.",
};

bool IsMac(const std::string& text)
{
    if (text.size() != 17) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool ok = i % 3 == 2 ? c == ':' : ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'));
        if (!ok) {
            return false;
        }
    }
    return true;
}

// Every device built is a complete entry of a leading table line.
void CheckTable(const EthernetInfoModule& module, const Input& input)
{
    const unsigned int count = module.GetDeviceCount();
    if (count > input.lines.size()) {
        Fail("more devices than table lines");
    }
    for (unsigned int d = 1; d <= count; ++d) {
        const auto& columns = input.lines[d - 1];
        if (module.GetInterfaceName(d) != columns.at(2) || module.GetPublicInterfaceName(d) != columns.at(1)) {
            Fail("device " + std::to_string(d) + " does not hold its table line's names");
        }
        if (!IsMac(module.GetMacAddress(d))) {
            Fail("malformed MAC address '" + module.GetMacAddress(d) + "'");
        }
        const unsigned int ports = module.GetPortCount(d);
        if (ports != static_cast<unsigned int>(std::strtoul(columns.at(3).c_str(), nullptr, 0))) {
            Fail("device " + std::to_string(d) + " has another port count than configured");
        }
        module.GetInterfaceType(d);
        for (unsigned int p = 1; p <= ports; ++p) {
            const auto state = static_cast<int>(module.GetPortLinkState(d, p));
            const auto speed = static_cast<int>(module.GetPortLinkSpeed(d, p));
            const auto duplex = static_cast<int>(module.GetPortLinkDuplex(d, p));
            module.GetPortPublicName(d, p);
            if (!(state == 0 || state == 1 || state == 255) || speed < 0 || speed > 3 || duplex < 0 || duplex > 2) {
                Fail("link code out of range on device " + std::to_string(d));
            }
        }
    }
}

void RunOne(const Input& input)
{
    HardwareModuleProvider provider;
    EthernetInfoModule module;
    try {
        module.SetupSettings(input.settings, provider);
    } catch (const Zel::System::Commons::InvalidConfigException& e) {
        if (!MatchesAny(configMessages, e.GetMessage())) {
            Fail("unexpected InvalidConfigException: " + e.GetMessage());
        }
    } catch (const Zel::System::Commons::InvalidOperationException& e) {
        if (!MatchesAny(operationMessages, e.GetMessage())) {
            Fail("unexpected InvalidOperationException: " + e.GetMessage());
        }
    } catch (const Zel::System::Commons::ArgumentException& e) {
        if (!MatchesAny(argumentMessages, e.GetMessage())) {
            Fail("unexpected ArgumentException: " + e.GetMessage());
        }
    } catch (const Zel::System::Commons::NotSupportedException& e) {
        if (!MatchesAny(notSupportedMessages, e.GetMessage())) {
            Fail("unexpected NotSupportedException: " + e.GetMessage());
        }
    } catch (const std::exception& e) {
        Fail(std::string("unexpected exception: ") + e.what());
    }
    CheckTable(module, input);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    environment = new Environment;
    CreateTree(*environment);
    environment->interfaces = RealInterfaces();
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(environment->root, ignored);
        std::filesystem::remove_all(std::filesystem::path(environment->spiPath).parent_path(), ignored);
    });
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    // A host's domain; every channel at trace level so that every message
    // is formatted with the fuzzed texts.
    environment->appDomain = std::make_unique<Zel::System::Commons::AppDomain>();
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(std::make_shared<DroppingSink>());
    environment->appDomain->AddSingleton(logManager);
    std::fprintf(stderr, "settings fuzzer: tree %s, SPI stand-in %s, %zu interfaces\n", environment->root.c_str(),
                 environment->spiPath.c_str(), environment->interfaces.size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input;
    if (!Decode(std::string(reinterpret_cast<const char*>(data), size), input)) {
        return -1; // not added to the corpus
    }
    const DescriptorMap before = OpenDescriptors();
    RunOne(input);
    CloseLeakedDescriptors(before);
    return 0;
}
