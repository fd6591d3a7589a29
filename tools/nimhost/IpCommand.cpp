#include "Commands.hpp"
#include "ExitCode.hpp"
#include "LinkText.hpp"
#include "UsageError.hpp"

#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iostream>
#include <type_traits>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;

namespace {

long long Code(IpAssignMode mode)
{
    return static_cast<std::underlying_type_t<IpAssignMode>>(mode);
}

[[noreturn]] void UnknownField(const std::string& field)
{
    throw UsageError(fmt::format("unknown field '{}': use address, netmask, gateway, dns or mode", field));
}

BasicString GetValue(IIpConfigModule& config, unsigned int device, const std::string& field)
{
    if (field == "address") {
        return config.GetIpAddress(device);
    }
    if (field == "netmask") {
        return config.GetSubnetMask(device);
    }
    if (field == "gateway") {
        return config.GetDefaultGateway(device);
    }
    if (field == "dns") {
        return config.GetDnsNameservers(device);
    }
    UnknownField(field);
}

// The operation's name goes into the failure message, so a user can find
// the matching lines in the library's log.
AccessErrorCode SetValue(IIpConfigModule& config, unsigned int device, const std::string& field,
                         const BasicString& value, std::string& operation)
{
    if (field == "address") {
        operation = "SetIpAddress";
        return config.SetIpAddress(device, value);
    }
    if (field == "netmask") {
        operation = "SetSubnetMask";
        return config.SetSubnetMask(device, value);
    }
    if (field == "gateway") {
        operation = "SetDefaultGateway";
        return config.SetDefaultGateway(device, value);
    }
    if (field == "dns") {
        operation = "SetDnsNameservers";
        return config.SetDnsNameservers(device, value);
    }
    UnknownField(field);
}

} // namespace

std::string MethodWordList()
{
    std::string list;
    for (const auto& word : AssignModeWords()) {
        list += list.empty() ? word : ", " + word;
    }
    return list;
}

IpAssignMode ParseMethodWord(const std::string& word)
{
    IpAssignMode mode{};
    if (!ParseAssignMode(word, mode)) {
        throw UsageError(fmt::format("'{}' is not a method word: use one of {}", word, MethodWordList()));
    }
    return mode;
}

int RunIpGet(const PluginHost& host, unsigned int device, const std::string& field, bool json, std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    if (field == "mode") {
        const IpAssignMode mode = config.GetIpAssignMode(device);
        if (json) {
            const nlohmann::ordered_json document{
                {"device", device}, {"field", field}, {"value", Code(mode)}, {"text", AssignModeWord(mode)}};
            out << document.dump(2) << '\n';
        } else {
            const std::string word = AssignModeWord(mode);
            out << (word.empty() ? DescribeAssignMode(mode) : word) << '\n';
        }
        return ExitCode::Success;
    }
    const BasicString value = GetValue(config, device, field);
    if (json) {
        const nlohmann::ordered_json document{{"device", device}, {"field", field}, {"value", std::string(value)}};
        out << document.dump(2) << '\n';
    } else {
        out << value << '\n';
    }
    return ExitCode::Success;
}

int RunIpSet(const PluginHost& host, unsigned int device, const std::string& field, const std::string& value,
             bool json, std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    AccessErrorCode result = AccessErrorCode::Success;
    std::string operation;
    if (field == "mode") {
        operation = "SetIpAssignMode";
        result = config.SetIpAssignMode(device, ParseMethodWord(value));
    } else {
        result = SetValue(config, device, field, BasicString(value), operation);
    }
    if (json) {
        out << nlohmann::ordered_json{{"device", device},
                              {"field", field},
                              {"value", value},
                              {"result", static_cast<std::underlying_type_t<AccessErrorCode>>(result)}}
                   .dump(2)
            << '\n';
    }
    if (result != AccessErrorCode::Success) {
        std::cerr << fmt::format("nimhost: IIpConfigModule::{}(device {}, \"{}\") returned {}\n", operation, device,
                                 value, DescribeAccessErrorCode(result));
        return ExitCode::OperationFailed;
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
