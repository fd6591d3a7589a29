#include "Commands.hpp"
#include "DeviceReport.hpp"
#include "ExceptionText.hpp"
#include "ExitCode.hpp"
#include "Failure.hpp"
#include "LinkText.hpp"
#include "PrintableText.hpp"
#include "UsageError.hpp"
#include "WriteFailure.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iostream>
#include <optional>
#include <type_traits>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;
using Zel::System::Commons::Logging::LogLevel;

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

AccessErrorCode SetValue(IIpConfigModule& config, unsigned int device, const std::string& field,
                         const BasicString& value)
{
    if (field == "address") {
        return config.SetIpAddress(device, value);
    }
    if (field == "netmask") {
        return config.SetSubnetMask(device, value);
    }
    if (field == "gateway") {
        return config.SetDefaultGateway(device, value);
    }
    if (field == "dns") {
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

namespace {

// The key the module writes for a field, as the file and its messages name it.
std::string FileKey(const std::string& field)
{
    return field == "dns" ? "dns-nameservers" : field == "mode" ? "inet" : field;
}

// A configured value as text (a method word for mode), or empty when the
// file holds none. Other failures pass to the caller.
std::optional<std::string> ReadConfigured(IIpConfigModule& config, unsigned int device, const std::string& field)
{
    try {
        if (field == "mode") {
            const IpAssignMode mode = config.GetIpAssignMode(device);
            const std::string word = AssignModeWord(mode);
            return word.empty() ? DescribeAssignMode(mode) : word;
        }
        return std::string(GetValue(config, device, field));
    } catch (const std::exception& e) {
        if (IsNotSet(ExceptionTypeName(e), e.what())) {
            return std::nullopt;
        }
        // The file access reads past the end of a line whose key has no value.
        if (ExceptionTypeName(e) == "std::out_of_range") {
            throw ExplainedFailure(fmt::format("the '{}' line of device {}'s block in /etc/network/interfaces has no "
                                               "value",
                                               FileKey(field), device),
                                   ExceptionTypeName(e), e.what());
        }
        throw;
    }
}

nlohmann::ordered_json OrNull(const std::optional<std::string>& text)
{
    return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(nullptr);
}

} // namespace

int RunIpGet(const PluginHost& host, unsigned int device, const std::string& field, const Presentation& how,
             std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    const auto value = ReadConfigured(config, device, field);
    if (how.json) {
        nlohmann::ordered_json document{{"device", device}, {"field", field}, {"value", OrNull(value)}};
        if (field == "mode" && value) {
            document["value"] = Code(config.GetIpAssignMode(device));
            document["text"] = *value;
        }
        out << document.dump(2) << '\n';
        return ExitCode::Success;
    }
    bool control = false;
    out << (value ? Printable(*value, control) : std::string("not set")) << '\n';
    if (control) {
        std::cerr << "nimhost: the value holds control characters (shown escaped)\n";
    }
    return ExitCode::Success;
}

int RunIpSet(const PluginHost& host, const IpSetRequest& request, const Presentation& how, std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    const std::string interfaceName = host.Get<IEthernetInfoModule>().GetInterfaceName(request.device);
    const std::string& field = request.field;
    const auto before = ReadConfigured(config, request.device, field);
    bool control = false;
    const std::string change =
        fmt::format("{} {}: {} -> {}", interfaceName, field,
                    before ? Printable(*before, control) : std::string("not set"), Printable(request.value, control));

    AccessErrorCode result = AccessErrorCode::Success;
    std::string cause;
    if (!request.dryRun) {
        const std::size_t mark = how.log != nullptr ? how.log->Mark() : 0;
        if (field == "mode") {
            result = config.SetIpAssignMode(request.device, ParseMethodWord(request.value));
        } else {
            result = SetValue(config, request.device, field, BasicString(request.value));
        }
        if (result != AccessErrorCode::Success) {
            const auto errors =
                how.log != nullptr ? how.log->TextsSince(mark, LogLevel::Error) : std::vector<std::string>{};
            cause = ExplainFailedWrite(interfaceName, FileKey(field), errors);
        }
    }
    const bool failed = result != AccessErrorCode::Success;
    if (how.json) {
        nlohmann::ordered_json document{{"device", request.device},
                                        {"interfaceName", interfaceName},
                                        {"field", field},
                                        {"before", OrNull(before)},
                                        {"value", request.value},
                                        {"written", !request.dryRun && !failed},
                                        {"result", static_cast<std::underlying_type_t<AccessErrorCode>>(result)}};
        if (failed) {
            document["error"] = {{"type", "write"},
                                 {"message", cause},
                                 {"exitCode", static_cast<int>(ExitCode::OperationFailed)}};
        }
        out << document.dump(2) << '\n';
    }
    if (failed) {
        std::cerr << fmt::format("nimhost: {} not written: {}\n", change, cause);
        if (how.technical) {
            std::cerr << fmt::format("nimhost: the module returned {}\n", DescribeAccessErrorCode(result));
        }
        return ExitCode::OperationFailed;
    }
    if (!how.json) {
        out << change << (request.dryRun ? " (dry run: not written)" : "") << '\n';
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
