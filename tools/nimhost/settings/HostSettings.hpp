#pragma once

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <toml++/toml.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Tools::Nimhost {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::System::Commons::BasicString;

// The module settings nimhost hands the plug-in, one ModuleSettings per module
// registration name, read from a TOML settings file or built from the machine.
//
// Settings file: one table per module, named by its registration name; in it
// every key with a text value is a single setting, and the sub-table "fields"
// holds the setting fields, each an array of lines, each line an array of
// texts:
//
//   ["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
//   mandatoryInterfaces = "1"
//   "path.1.1.sysFile" = "/sys/class/net/eth0/"
//   ["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
//   interfaces = [
//     ["1", "X1", "eth0", "1", "sysFile", "P1", "Ethernet"],
//   ]
//
// Values are texts exactly as written; numbers, booleans and dates are
// refused (the modules parse their own texts, "0x10" included).
class HostSettings {
public:
    // Throws UsageError naming the file, line, column and key of the first
    // fault (TOML syntax, a value that is not text, a misplaced table).
    static HostSettings LoadFile(const std::string& path);

    // The embedded default: every interface but "lo", in the order given, as
    // one device with one "sysFile" port reading /sys/class/net/<name>/, of
    // type Ethernet, named after the interface.
    static HostSettings FromInterfaces(const std::vector<std::string>& interfaceNames);

    // Throws UsageError, naming the file and line, for a module table whose
    // name the plug-in does not register.
    void CheckModuleNames(const std::vector<BasicString>& registeredNames) const;

    // Checks a settings file as the modules' set-up would read it
    // (CheckSettingsFile); returns the warnings. Nothing to check for the
    // settings built from the machine.
    std::vector<std::string> Check(const std::vector<std::string>& machineInterfaces) const;

    // The settings the module gets; empty settings for a module the file does
    // not mention.
    const ModuleSettings& For(const BasicString& moduleName) const;

    // Column 5 (port mode) of line `device` of the Ethernet information
    // module's "interfaces" table; empty when there is no such line. The
    // module's interface does not report the mode, so the report takes it
    // from here; device n is table line n.
    BasicString PortMode(unsigned int device) const;

    // The settings file's path, or empty for the embedded default.
    const std::string& GetPath() const { return path; }
    // "settings.toml" or "built from this machine's interfaces".
    std::string DescribeOrigin() const;

    const std::map<BasicString, ModuleSettings>& GetModules() const { return modules; }

    // The settings as a settings file that LoadFile reads back unchanged.
    std::string ToToml() const;

private:
    struct Position {
        std::size_t line = 0;
        std::size_t column = 0;
    };

    std::string path;
    // The file as read, with the positions the check names.
    std::shared_ptr<const toml::table> document;
    std::map<BasicString, ModuleSettings> modules;
    std::map<BasicString, Position> positions;
};

// The registration name of the Ethernet information module, whose settings
// describe the devices.
BasicString EthernetInfoModuleName();

// A TOML basic string holding `text` exactly (\" \\ \n and \uXXXX escapes).
std::string TomlQuoted(std::string_view text);

} // namespace Zel::Tools::Nimhost
