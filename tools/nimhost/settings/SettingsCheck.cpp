#include "settings/SettingsCheck.hpp"

#include "settings/HostSettings.hpp"
#include "text/PrintableText.hpp"
#include "text/UsageError.hpp"

#include "Modules/Commons/Linux/GpioChip.hpp"
#include "Modules/Commons/Linux/GpioLineReader.hpp"

#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>

namespace Zel::Tools::Nimhost {

namespace {

// More ports than any device of these boards has; a larger count is a typo
// (and the module would try to create that many port objects).
constexpr unsigned int maxPorts = 64;

const std::vector<std::string> portModes{"i210Driver",       "sysFile",           "switchKSZ8794",
                                         "switchKSZ8794spi", "switchKSZ8863gpio", "unsupported"};
const std::vector<std::string> interfaceTypes{"Ethernet", "Fieldbus", "Service", "Internal", "Wireless", "Unknown"};
const std::vector<std::string> columnNames{"device index", "public name", "interface name", "port count",
                                           "port mode",    "port names",  "interface type"};

// Keys in quotes, escaped, so that a problem stays on its line.
std::string Quoted(const std::string& key)
{
    return TomlQuoted(key);
}

std::string Join(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words) {
        text += text.empty() ? word : ", " + word;
    }
    return text;
}

// An unsigned number as the module reads it (strtoul with base 0: 0x hex, a
// leading 0 octal, else decimal), but only when the whole text is one.
std::optional<unsigned int> ParseModuleNumber(const std::string& text)
{
    if (text.empty() || !(text[0] >= '0' && text[0] <= '9')) {
        return std::nullopt;
    }
    errno = 0;
    char* end = nullptr;
    // strtoull, so that the range test means the same on 32-bit ARM.
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > std::numeric_limits<unsigned int>::max()) {
        return std::nullopt;
    }
    return static_cast<unsigned int>(value);
}

// The port names as the module splits column 6 (";"-separated, trimmed, no
// trailing empty name).
std::size_t PortNameCount(const std::string& text)
{
    std::size_t count = 0;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t end = std::min(text.find(';', position), text.size());
        ++count;
        position = end + 1;
    }
    return count;
}

// One line of the "interfaces" table, with a complete set of columns or not.
struct TableLine {
    const toml::node& node;
    const toml::array& columns;
    unsigned int number;
    // The table's key in the file, as the problems name it.
    const std::string& tableKey;

    // A column's text; empty when it is not a text (reported when the file was read).
    std::string Text(std::size_t column) const
    {
        const toml::node* cell = columns.get(column);
        return cell != nullptr && cell->is_string() ? cell->as_string()->get() : std::string();
    }
    // Where a column is, or the line when it lacks the column.
    toml::source_region Where(std::size_t column) const
    {
        return column < columns.size() ? columns[column].source() : node.source();
    }
};

class Checker {
public:
    Checker(const std::string& path, const std::vector<std::string>& machine) : path(path), machine(machine) {}

    // A value from the file that the text quotes keeps its control
    // characters escaped, so that every problem stays on its line.
    void Fault(const toml::source_region& where, const std::string& key, const std::string& text)
    {
        bool hadControl = false;
        faults.push_back(Where(where, key) + Printable(text, hadControl));
    }
    void Warn(const toml::source_region& where, const std::string& key, const std::string& text)
    {
        bool hadControl = false;
        warnings.push_back(Where(where, key) + Printable(text, hadControl));
    }

    void CheckEthernet(const toml::table& module, const std::string& moduleKey, const toml::source_region& header);
    void CheckNoSettings(const toml::table& module, const std::string& moduleKey);

    std::vector<std::string> faults;
    std::vector<std::string> warnings;

private:
    std::string Where(const toml::source_region& where, const std::string& key) const
    {
        return fmt::format("{}:{}:{}: key '{}': ", path, where.begin.line, where.begin.column, key);
    }

    unsigned int CheckMandatory(const toml::table& module, const std::string& moduleKey);
    const toml::array* FindInterfaceTable(const toml::table& module, const std::string& moduleKey,
                                          const toml::source_region& header);
    unsigned int CheckColumns(const TableLine& line);
    void CheckOnMachine(const TableLine& line, unsigned int mandatory, bool& onMachine);
    void CheckPortKeys(const toml::table& module, const std::string& moduleKey, const TableLine& line,
                       unsigned int portCount, bool onMachine, std::set<std::string>& used);
    void WarnUnread(const toml::table& module, const std::string& moduleKey, const std::set<std::string>& used);
    void CheckPath(const toml::table& module, const std::string& moduleKey, const toml::source_region& line,
                   const std::string& key, bool directory, std::set<std::string>& used);
    void CheckLinkLine(const toml::table& module, const std::string& moduleKey, unsigned int device, unsigned int port,
                       std::set<std::string>& used);

    const std::string& path;
    const std::vector<std::string>& machine;
    // Link lines of the character device seen so far, by chip node and
    // offset, with the device and port that read each.
    std::map<std::pair<dev_t, unsigned int>, std::pair<unsigned int, unsigned int>> linkLines;
};

// A link line on the GPIO character device: the chip and the line are found
// as the port's set-up finds them (with its texts), and no two ports may read
// one line.
void Checker::CheckLinkLine(const toml::table& module, const std::string& moduleKey, unsigned int device,
                            unsigned int port, std::set<std::string>& used)
{
    using Zel::Hardware::Modules::Commons::Linux::GpioChip;
    const std::string lineKey = fmt::format("path.{}.{}.linkLine", device, port);
    const std::string chipKey = fmt::format("path.{}.{}.linkChip", device, port);
    const std::string linkKey = fmt::format("path.{}.{}.link", device, port);
    used.insert(lineKey);
    used.insert(chipKey);
    const toml::node& lineNode = *module.get(lineKey);
    const std::string line = lineNode.value_or(std::string());
    if (const toml::node* link = module.get(linkKey)) {
        used.insert(linkKey);
        Warn(link->source(), moduleKey + "." + Quoted(linkKey),
             fmt::format("not read: '{}' names the link line on the GPIO character device instead", lineKey));
    }

    std::optional<GpioChip> chip;
    unsigned int offset = 0;
    const toml::node* chipNode = module.get(chipKey);
    const toml::node& blamed = chipNode != nullptr ? *chipNode : lineNode;
    try {
        if (chipNode == nullptr) {
            chip.emplace(GpioChip::WithLineNamed(line, offset));
        } else {
            chip.emplace(chipNode->value_or(std::string()));
        }
    } catch (const Zel::System::Commons::Exception& error) {
        Fault(blamed.source(), moduleKey + "." + Quoted(chipNode != nullptr ? chipKey : lineKey), error.GetMessage());
        return;
    }
    try {
        if (chipNode != nullptr) {
            offset = chip->FindLine(line);
        }
    } catch (const Zel::System::Commons::Exception& error) {
        Fault(lineNode.source(), moduleKey + "." + Quoted(lineKey), error.GetMessage());
        return;
    }

    struct stat node {};
    if (::stat(chip->Path().c_str(), &node) == 0) {
        const auto [first, added] = linkLines.try_emplace({node.st_rdev, offset}, device, port);
        if (!added) {
            Fault(lineNode.source(), moduleKey + "." + Quoted(lineKey),
                  fmt::format("line {} of GPIO chip '{}' is already the link line of device {} port {}", offset,
                              chip->Path(), first->second.first, first->second.second));
            return;
        }
    }
    // Held for good by someone else, the port reads unknown; the plug-in's
    // own readers hold it only for a moment (and unlabelled only in passing).
    const auto holder = chip->Holder(offset);
    if (holder && !holder->empty() && *holder != Zel::Hardware::Modules::Commons::Linux::GpioLineReader::Consumer) {
        Warn(lineNode.source(), moduleKey + "." + Quoted(lineKey),
             fmt::format("line {} of GPIO chip '{}' is held by '{}': the port reads link unknown (255) while it is",
                         offset, chip->Path(), *holder));
    }
}

void Checker::CheckPath(const toml::table& module, const std::string& moduleKey, const toml::source_region& line,
                        const std::string& key, bool directory, std::set<std::string>& used)
{
    used.insert(key);
    const toml::node* node = module.get(key);
    const std::string keyPath = moduleKey + "." + Quoted(key);
    if (node == nullptr || !node->is_string()) {
        Fault(line, keyPath, "missing: the port mode of this line reads it");
        return;
    }
    const std::string value = node->as_string()->get();
    if (value.empty() || value[0] != '/') {
        Fault(node->source(), keyPath, fmt::format("'{}' is not an absolute path", value));
        return;
    }
    if (directory && value.back() != '/') {
        Fault(node->source(), keyPath, fmt::format("'{}' must end in '/' (the directory of the interface)", value));
        return;
    }
    struct stat status {};
    if (::stat(value.c_str(), &status) != 0) {
        const int error = errno;
        Fault(node->source(), keyPath, fmt::format("'{}': {}", value, std::strerror(error)));
    } else if (directory != S_ISDIR(status.st_mode)) {
        Fault(node->source(), keyPath,
              fmt::format("'{}' is {}", value, directory ? "not a directory" : "a directory, not a file"));
    }
}

void Checker::CheckEthernet(const toml::table& module, const std::string& moduleKey, const toml::source_region& header)
{
    std::set<std::string> used{"fields", "mandatoryInterfaces"};
    const unsigned int mandatory = CheckMandatory(module, moduleKey);
    const std::string tableKey = moduleKey + ".fields.interfaces";
    const toml::array* lines = FindInterfaceTable(module, moduleKey, header);
    static const toml::array noLines;

    bool onMachine = true;
    unsigned int lineNumber = 0;
    for (const toml::node& lineNode : lines != nullptr ? *lines : noLines) {
        ++lineNumber;
        const toml::array* columns = lineNode.as_array();
        if (columns == nullptr) {
            continue; // reported when the file was read
        }
        const TableLine line{lineNode, *columns, lineNumber, tableKey};
        if (columns->size() != columnNames.size()) {
            Fault(lineNode.source(), tableKey,
                  fmt::format("line {} has {} columns, a line has 7: {}", lineNumber, columns->size(),
                              Join(columnNames)));
            continue;
        }
        const unsigned int portCount = CheckColumns(line);
        CheckOnMachine(line, mandatory, onMachine);
        CheckPortKeys(module, moduleKey, line, portCount, onMachine, used);
    }
    WarnUnread(module, moduleKey, used);
}

// The number of devices whose interfaces must be there; 0 when not given.
unsigned int Checker::CheckMandatory(const toml::table& module, const std::string& moduleKey)
{
    const toml::node* node = module.get("mandatoryInterfaces");
    if (node == nullptr || !node->is_string()) {
        return 0;
    }
    const auto parsed = ParseModuleNumber(node->as_string()->get());
    if (!parsed) {
        Fault(node->source(), moduleKey + ".mandatoryInterfaces",
              fmt::format("'{}' is not an unsigned number (decimal, 0x hexadecimal or 0 octal)",
                          node->as_string()->get()));
    }
    return parsed.value_or(0);
}

// The "interfaces" table of "fields"; null, and a fault, when there is none.
const toml::array* Checker::FindInterfaceTable(const toml::table& module, const std::string& moduleKey,
                                               const toml::source_region& header)
{
    const toml::table* fields = module.get_as<toml::table>("fields");
    const toml::array* lines = fields != nullptr ? fields->get_as<toml::array>("interfaces") : nullptr;
    if (fields != nullptr) {
        for (auto&& [name, node] : *fields) {
            if (name.str() != "interfaces") {
                Warn(node.source(), moduleKey + ".fields." + std::string(name.str()),
                     "unknown table, not read (the devices are in 'interfaces')");
            }
        }
    }
    if (lines == nullptr) {
        Fault(fields != nullptr ? fields->source() : header, moduleKey + ".fields.interfaces",
              "missing: the board's devices are described in this table");
    }
    return lines;
}

// The columns of a line of seven, as the module parses them; the number of
// ports whose keys are read (0 when the count is wrong).
unsigned int Checker::CheckColumns(const TableLine& line)
{
    const auto fault = [&](std::size_t column, const std::string& what) {
        Fault(line.Where(column), line.tableKey,
              fmt::format("line {} column {} ({}): {}", line.number, column + 1, columnNames[column], what));
    };
    const auto index = ParseModuleNumber(line.Text(0));
    if (!index) {
        fault(0, fmt::format("'{}' is not an unsigned number", line.Text(0)));
    } else if (*index != line.number) {
        fault(0, fmt::format("is {} but must be the line number, {}", *index, line.number));
    }
    const auto ports = ParseModuleNumber(line.Text(3));
    if (!ports) {
        fault(3, fmt::format("'{}' is not an unsigned number (decimal, 0x hexadecimal or 0 octal)", line.Text(3)));
    } else if (*ports > maxPorts) {
        fault(3, fmt::format("{} is more ports than a device has (at most {})", *ports, maxPorts));
    }
    const std::string mode = line.Text(4);
    if (std::find(portModes.begin(), portModes.end(), mode) == portModes.end()) {
        fault(4, fmt::format("unknown mode '{}': use one of {}", mode, Join(portModes)));
    }
    const std::size_t names = PortNameCount(line.Text(5));
    if (ports && names != 0 && names != *ports) {
        fault(5, fmt::format("{} names for {} ports: give one per port, separated by ';', or none", names, *ports));
    }
    Zel::Hardware::Nim::NetworkInterfaceType type{};
    std::istringstream stream(line.Text(6));
    if (!(stream >> type) ||
        std::find(interfaceTypes.begin(), interfaceTypes.end(), line.Text(6)) == interfaceTypes.end()) {
        fault(6, fmt::format("unknown interface type '{}': use one of {}", line.Text(6), Join(interfaceTypes)));
    }
    return ports && *ports <= maxPorts ? *ports : 0;
}

// The module sets up the lines up to the first interface this machine lacks;
// their port keys are read only then.
void Checker::CheckOnMachine(const TableLine& line, unsigned int mandatory, bool& onMachine)
{
    const std::string interfaceName = line.Text(2);
    if (!onMachine || std::find(machine.begin(), machine.end(), interfaceName) != machine.end()) {
        return;
    }
    onMachine = false;
    const std::string what = fmt::format("line {} column 3 (interface name): this machine has no interface '{}'",
                                         line.number, interfaceName);
    if (line.number <= mandatory) {
        Warn(line.Where(2), line.tableKey,
             what + fmt::format(": set-up fails here (mandatoryInterfaces is {})", mandatory));
    } else {
        Warn(line.Where(2), line.tableKey, what + ": the devices end before this line");
    }
}

// The path keys each port of the line reads with its mode; a line the
// module does not set up reads none, and its keys are not warned about.
void Checker::CheckPortKeys(const toml::table& module, const std::string& moduleKey, const TableLine& line,
                            unsigned int portCount, bool onMachine, std::set<std::string>& used)
{
    const std::string mode = line.Text(4);
    const unsigned int lineNumber = line.number;
    for (unsigned int port = 1; port <= portCount; ++port) {
        const auto key = [&](const char* name) { return fmt::format("path.{}.{}.{}", lineNumber, port, name); };
        if (!onMachine) {
            for (const char* name : {"sysFile", "speed", "duplex", "link", "linkLine", "linkChip"}) {
                used.insert(key(name));
            }
            used.insert(fmt::format("path.{}.spi", lineNumber));
            continue;
        }
        const auto& region = line.node.source();
        if (mode == "sysFile") {
            CheckPath(module, moduleKey, region, key("sysFile"), true, used);
        } else if (mode == "switchKSZ8794") {
            CheckPath(module, moduleKey, region, key("speed"), false, used);
            CheckPath(module, moduleKey, region, key("duplex"), false, used);
        } else if (mode == "switchKSZ8794spi" || mode == "switchKSZ8863gpio") {
            if (port == 1) {
                CheckPath(module, moduleKey, region, fmt::format("path.{}.spi", lineNumber), false, used);
            }
            if (mode == "switchKSZ8863gpio" && module.contains(key("linkLine"))) {
                CheckLinkLine(module, moduleKey, lineNumber, port, used);
            } else if (mode == "switchKSZ8863gpio") {
                CheckPath(module, moduleKey, region, key("link"), false, used);
                if (const toml::node* chip = module.get(key("linkChip"))) {
                    used.insert(key("linkChip"));
                    Warn(chip->source(), moduleKey + "." + Quoted(key("linkChip")),
                         fmt::format("not read without '{}' (the line on this chip)", key("linkLine")));
                }
            }
        }
    }
}

// The keys no check above read: a port's key the table gives no port for,
// or a key no module reads at all.
void Checker::WarnUnread(const toml::table& module, const std::string& moduleKey, const std::set<std::string>& used)
{
    static const std::regex portKey(R"(path\.[0-9]+\.([0-9]+\.(sysFile|speed|duplex|link|linkLine|linkChip)|spi))");
    for (auto&& [name, node] : module) {
        const std::string key(name.str());
        if (used.count(key) != 0U) {
            continue;
        }
        Warn(node.source(), moduleKey + "." + Quoted(key),
             std::regex_match(key, portKey) ? "no port of the table reads it with its mode" : "unknown key, not read");
    }
}

void Checker::CheckNoSettings(const toml::table& module, const std::string& moduleKey)
{
    for (auto&& [name, node] : module) {
        Warn(node.source(), moduleKey + "." + Quoted(std::string(name.str())),
             "this module takes no settings; not read");
    }
}

} // namespace

std::vector<std::string> CheckSettingsFile(const toml::table& root, const std::string& path,
                                           const std::vector<std::string>& machineInterfaces)
{
    Checker checker(path, machineInterfaces);
    const std::string ethernet = EthernetInfoModuleName();
    bool anyEthernet = false;
    for (auto&& [name, node] : root) {
        const toml::table* module = node.as_table();
        if (module == nullptr) {
            continue; // reported when the file was read
        }
        if (name.str() == ethernet) {
            anyEthernet = true;
            checker.CheckEthernet(*module, Quoted(ethernet), name.source());
        } else {
            checker.CheckNoSettings(*module, Quoted(std::string(name.str())));
        }
    }
    if (!anyEthernet) {
        checker.faults.push_back(fmt::format(
            "{}: table [{}] missing: it describes the board's devices (see nimhost settings for an example)", path,
            Quoted(ethernet)));
    }
    if (!checker.faults.empty()) {
        std::string text;
        for (const auto& fault : checker.faults) {
            text += text.empty() ? fault : "\n" + fault;
        }
        // A misspelt table name is often why a table is missing.
        for (const auto& warning : checker.warnings) {
            text += "\nwarning: " + warning;
        }
        throw UsageError(text);
    }
    return checker.warnings;
}

} // namespace Zel::Tools::Nimhost
