#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794spi.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoUnsupported.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <sstream>

namespace Zel::Hardware::Modules::Nim::Linux {

namespace {

using ::Zel::Hardware::Commons::Modules::SettingField;
using ::Zel::System::Commons::ArgumentException;
using ::Zel::System::Commons::InvalidConfigException;
using ::Zel::System::Commons::InvalidOperationException;
using ::Zel::System::Commons::Logging::Debug;
using ::Zel::System::Commons::Logging::Trace;
using BasicString = ::Zel::System::Commons::BasicString;

// Numbers in the configuration take C base prefixes: "0x2" and "2" both name
// line 2, "010" is eight. Text that is no number reads as 0, which the index
// check then reports as a wrong index. The controller reads them with a
// 32-bit strtoul: a magnitude above 4294967295 gives 4294967295, and a minus
// sign negates modulo 2^32. Done so here on every platform, so "4294967297"
// is no line 1 on a 64-bit build either.
unsigned int ParseUnsigned(const BasicString& text)
{
    const char* cursor = text.c_str();
    while (std::isspace(static_cast<unsigned char>(*cursor)) != 0) {
        ++cursor;
    }
    const bool negative = *cursor == '-';
    if (*cursor == '-' || *cursor == '+') {
        ++cursor;
    }
    // A second sign or a blank after the sign is no number for strtoul.
    if (std::isdigit(static_cast<unsigned char>(*cursor)) == 0) {
        return 0;
    }
    errno = 0;
    const unsigned long long magnitude = std::strtoull(cursor, nullptr, 0);
    if (errno == ERANGE || magnitude > UINT_MAX) {
        return UINT_MAX;
    }
    const auto value = static_cast<unsigned int>(magnitude);
    return negative ? 0U - value : value;
}

BasicString Trim(const BasicString& text)
{
    const std::locale locale;
    auto isSpace = [&locale](char c) { return std::isspace(c, locale); };
    const auto first = std::find_if_not(text.begin(), text.end(), isSpace);
    const auto last = std::find_if_not(text.rbegin(), std::make_reverse_iterator(first), isSpace).base();
    return BasicString(first, last);
}

// "a; b" gives a and b, "a;b;" gives a and b (no trailing empty name), ";a"
// gives an empty name and a, an empty text gives no names.
std::vector<BasicString> SplitPortNames(const BasicString& text)
{
    std::vector<BasicString> names;
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t separator = text.find(';', position);
        const std::size_t end = separator == BasicString::npos ? text.size() : separator;
        names.push_back(Trim(BasicString(text.substr(position, end - position))));
        if (separator == BasicString::npos) {
            break;
        }
        position = separator + 1;
    }
    return names;
}

} // namespace

EthernetInfoModule::EthernetInfoModule(std::unique_ptr<const Internal::NetworkInterfaceAccess> kernel)
    : kernel(std::move(kernel))
{
    // The channel exists from construction on, so the first set-up message
    // does not pay for creating it.
    static_cast<void>(log.GetAdapter());
}

EthernetInfoModule::~EthernetInfoModule() = default;

void EthernetInfoModule::SetupSettings(const ModuleSettings& settings, const HardwareModuleProvider& /*provider*/)
{
    unsigned int mandatory = 0;
    if (settings.HasSetting("mandatoryInterfaces")) {
        mandatory = ParseUnsigned(settings.GetSetting("mandatoryInterfaces"));
        log(Debug, "Mandatory interfaces: {0}", mandatory);
    }

    // Read even when no table follows: a failing interface list is a set-up
    // failure in every configuration.
    const std::vector<BasicString> current = ReadCurrentIfNames();

    if (!settings.HasSettingField("interfaces")) {
        return;
    }
    const SettingField& table = settings.GetSettingField("interfaces");
    const unsigned int lineCount = table.GetLineCount();
    log(Debug, "interfaces in config: {0}:", lineCount);

    unsigned int missingLine = 0;
    BasicString missingName;
    for (unsigned int line = 1; line <= lineCount; ++line) {
        log(Debug, "Device {0}: {1}, {2}, {3}, {4}, {5}, {6}", table.GetSetting(line, 1), table.GetSetting(line, 2),
            table.GetSetting(line, 3), table.GetSetting(line, 4), table.GetSetting(line, 5), table.GetSetting(line, 6),
            table.GetSetting(line, 7));

        const unsigned int index = ParseUnsigned(table.GetSetting(line, 1));
        if (index != line) {
            throw InvalidConfigException(
                BasicString::Format("Wrong interface index {0} found, expected {1}", index, line));
        }

        DeviceEntry entry;
        entry.name = table.GetSetting(line, 3);
        entry.publicName = table.GetSetting(line, 2);

        // The first missing interface ends the table: devices keep their
        // line numbers, so nothing after a gap can be numbered.
        if (!CheckName(entry.name, current)) {
            missingLine = line;
            missingName = entry.name;
            break;
        }

        entry.macAddress = ReadMacAddress(entry.name);

        const unsigned int portCount = ParseUnsigned(table.GetSetting(line, 4));
        const BasicString& mode = table.GetSetting(line, 5);
        log(Debug, "interfaces {0}: port count = {1}, mode = '{2}'", line, portCount, mode);

        std::vector<BasicString> portNames = SplitPortNames(table.GetSetting(line, 6));
        if (!portNames.empty() && portNames.size() != portCount) {
            throw InvalidConfigException(BasicString::Format("Number of port names {0} does not match port count! {1}",
                                                             portNames.size(), portCount));
        }
        if (portNames.empty()) {
            portNames.resize(portCount);
        }

        for (unsigned int port = 1; port <= portCount; ++port) {
            entry.ports.push_back(CreateEthPortInfo(mode, line, port, entry.name, settings, portNames[port - 1]));
        }

        log(Trace, "Ethernet Device {0}: Public Name '{1}', Name '{2}', MAC {3}, {4} Ports.", line, entry.publicName,
            entry.name, entry.macAddress, portCount);

        entry.interfaceType = ConvertNetworkInterfaceType(table.GetSetting(line, 7));
        // Logs the interface type under the words "port count": the
        // controller's log filters match this line as it stands.
        log(Debug, "Ethernet Device {0}: port count = {1}", line, static_cast<std::int32_t>(entry.interfaceType));

        // Only complete entries enter the table; earlier ones stay if a later
        // line fails.
        devices.push_back(std::move(entry));
    }

    // Only a table cut short by a missing interface is held against the
    // mandatory count; a count beyond the table's end is accepted.
    if (missingLine != 0 && mandatory >= missingLine) {
        throw InvalidOperationException(BasicString::Format("Could not find interface {0}", missingName));
    }
}

void EthernetInfoModule::Dispose()
{
}

bool EthernetInfoModule::IsEnabled() const
{
    return true;
}

std::vector<BasicString> EthernetInfoModule::ReadCurrentIfNames() const
{
    std::vector<BasicString> names = kernel->ReadLinkInterfaceNames();
    for (const BasicString& name : names) {
        log(Debug, "Found interface {0}", name);
    }
    return names;
}

bool EthernetInfoModule::CheckName(const BasicString& name, const std::vector<BasicString>& names) const
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

BasicString EthernetInfoModule::ReadMacAddress(const BasicString& interfaceName) const
{
    const Internal::NetworkInterfaceAccess::HardwareAddress address = kernel->ReadHardwareAddress(interfaceName);
    BasicString text;
    for (std::size_t i = 0; i + 1 < address.size(); ++i) {
        text += BasicString::Format("{0:02X}:", static_cast<unsigned int>(address[i]));
    }
    text += BasicString::Format("{0:02X}", static_cast<unsigned int>(address.back()));
    return text;
}

EthernetInfoModule::NetworkInterfaceType EthernetInfoModule::ConvertNetworkInterfaceType(const BasicString& text) const
{
    std::istringstream stream(text);
    NetworkInterfaceType type = NetworkInterfaceType::Unknown;
    stream >> type;
    if (stream.fail()) {
        throw ArgumentException::Create("NetworkInterfaceType", text, "Unknown network interface type");
    }
    return type;
}

std::shared_ptr<EthernetInfoModule::IEthPortInfo>
EthernetInfoModule::CreateEthPortInfo(const BasicString& mode, unsigned int deviceIndex, unsigned int portIndex,
                                      const BasicString& interfaceName, const ModuleSettings& settings,
                                      const BasicString& portPublicName) const
{
    using namespace Internal;

    // make_shared: object and count in one allocation.
    std::shared_ptr<IEthPortInfo> port;
    if (mode == "i210Driver") {
        port = std::make_shared<EthPortInfoI210Drv>(deviceIndex, portIndex, interfaceName);
    } else if (mode == "sysFile") {
        port = std::make_shared<EthPortInfoSysFile>(deviceIndex, portIndex, settings);
    } else if (mode == "switchKSZ8794") {
        port = std::make_shared<EthPortInfoSwitchKSZ8794>(deviceIndex, portIndex, settings);
    } else if (mode == "switchKSZ8794spi") {
        port = std::make_shared<EthPortInfoSwitchKSZ8794spi>(deviceIndex, portIndex, settings);
    } else if (mode == "switchKSZ8863gpio") {
        port = std::make_shared<EthPortInfoSwitchKSZ8863gpio>(deviceIndex, portIndex, settings);
    } else if (mode == "unsupported") {
        port = std::make_shared<EthPortInfoUnsupported>();
    } else {
        throw ArgumentException::Create("mode", mode, "Unknown mode");
    }
    port->publicName = portPublicName;
    return port;
}

// Every per-device query indexes with at(device - 1): device 0 wraps to the
// largest unsigned value, so 0 and numbers past the end both throw the
// vector's std::out_of_range, and nothing else checks them.

unsigned int EthernetInfoModule::GetDeviceCount() const
{
    return static_cast<unsigned int>(devices.size());
}

unsigned int EthernetInfoModule::GetPortCount(unsigned int device) const
{
    return static_cast<unsigned int>(devices.at(device - 1).ports.size());
}

BasicString EthernetInfoModule::GetInterfaceName(unsigned int device) const
{
    return devices.at(device - 1).name;
}

BasicString EthernetInfoModule::GetMacAddress(unsigned int device) const
{
    return devices.at(device - 1).macAddress;
}

EthernetInfoModule::LinkState EthernetInfoModule::GetPortLinkState(unsigned int device, unsigned int port) const
{
    return devices.at(device - 1).ports.at(port - 1)->GetPortLinkState();
}

EthernetInfoModule::LinkSpeed EthernetInfoModule::GetPortLinkSpeed(unsigned int device, unsigned int port) const
{
    return devices.at(device - 1).ports.at(port - 1)->GetPortLinkSpeed();
}

EthernetInfoModule::LinkDuplex EthernetInfoModule::GetPortLinkDuplex(unsigned int device, unsigned int port) const
{
    return devices.at(device - 1).ports.at(port - 1)->GetPortLinkDuplex();
}

BasicString EthernetInfoModule::GetPublicInterfaceName(unsigned int device) const
{
    return devices.at(device - 1).publicName;
}

BasicString EthernetInfoModule::GetPortPublicName(unsigned int device, unsigned int port) const
{
    return devices.at(device - 1).ports.at(port - 1)->publicName;
}

EthernetInfoModule::NetworkInterfaceType EthernetInfoModule::GetInterfaceType(unsigned int device) const
{
    return devices.at(device - 1).interfaceType;
}

std::vector<BasicString> EthernetInfoModule::GetListOfInterfaceNames() const
{
    return ReadCurrentIfNames();
}

} // namespace Zel::Hardware::Modules::Nim::Linux
