#include "cli/Commands.hpp"
#include "ip/ConfigDiagnosis.hpp"
#include "ip/EditCheck.hpp"
#include "ip/InterfacesText.hpp"
#include "ip/LineDiff.hpp"
#include "ip/TrialWrite.hpp"
#include "ip/WriteFailure.hpp"
#include "text/ExceptionText.hpp"
#include "text/ExitCode.hpp"
#include "text/Failure.hpp"
#include "text/LinkText.hpp"
#include "text/PrintableText.hpp"
#include "text/UsageError.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <functional>
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

// A configured value as the module reads it.
struct Configured {
    // Text (a method word for mode); empty when the file holds none.
    std::optional<std::string> value;
    // The module could not read the line: its key ends the line.
    bool unreadable = false;
    std::string errorType;
    std::string errorMessage;
};

// Failures other than "not set" and an unreadable line pass to the caller.
Configured ReadConfigured(IIpConfigModule& config, unsigned int device, const std::string& field)
{
    Configured configured;
    try {
        if (field == "mode") {
            const IpAssignMode mode = config.GetIpAssignMode(device);
            const std::string word = AssignModeWord(mode);
            configured.value = word.empty() ? DescribeAssignMode(mode) : word;
        } else {
            configured.value = std::string(GetValue(config, device, field));
        }
    } catch (const std::exception& e) {
        if (IsNotSet(ExceptionTypeName(e), e.what())) {
            return configured;
        }
        // The file access reads past the end of a line whose key has no value.
        if (ExceptionTypeName(e) != "std::out_of_range") {
            throw;
        }
        configured.unreadable = true;
        configured.errorType = ExceptionTypeName(e);
        configured.errorMessage = e.what();
    }
    return configured;
}

std::string DescribeUnreadable(const std::optional<std::string>& text, const std::string& interfaceName,
                               const std::string& field, unsigned int device)
{
    return DescribeLineWithoutValue(InterfacesText(text.value_or(std::string())), interfacesFile, interfaceName,
                                    FileKey(field), field, device);
}

nlohmann::ordered_json OrNull(const std::optional<std::string>& text)
{
    return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(nullptr);
}

// What nimhost adds on standard error to a value it prints: where it comes
// from when that is not the interface's own line, and a stanza the
// controller does not read.
void SayDiagnosis(const ConfigDiagnosis& diagnosis, const std::string& field)
{
    if (const auto found = diagnosis.foreign.find(field); found != diagnosis.foreign.end()) {
        std::cerr << "nimhost: " << found->second.sentence << '\n';
    }
    if (diagnosis.sourced) {
        std::cerr << "nimhost: " << diagnosis.sourcedSentence << '\n';
    }
}

// The method word the module writes for a mode.
std::string WrittenMethodWord(const std::string& word)
{
    const IpAssignMode mode = ParseMethodWord(word);
    return static_cast<std::underlying_type_t<IpAssignMode>>(mode) == 0 ? std::string("static") : AssignModeWord(mode);
}

} // namespace

int RunIpGet(const PluginHost& host, unsigned int device, const std::string& field, const Presentation& how,
             std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    const std::string interfaceName = host.Get<IEthernetInfoModule>().GetInterfaceName(device);
    const auto text = ReadInterfacesFile();
    const Configured configured = ReadConfigured(config, device, field);
    if (configured.unreadable) {
        throw ExplainedFailure(DescribeUnreadable(text, interfaceName, field, device), configured.errorType,
                               configured.errorMessage);
    }
    const auto& value = configured.value;
    const ConfigDiagnosis diagnosis =
        Diagnose(text, interfaceName, value ? std::vector<std::string>{field} : std::vector<std::string>{});
    if (how.json) {
        nlohmann::ordered_json document{{"device", device}, {"field", field}, {"value", OrNull(value)}};
        if (field == "mode" && value) {
            document["value"] = Code(config.GetIpAssignMode(device));
            document["text"] = *value;
        }
        document["foreign"] = ForeignJson(diagnosis, field);
        document["sourcedStanza"] = SourcedJson(diagnosis);
        out << document.dump(2) << '\n';
        return ExitCode::Success;
    }
    bool control = false;
    out << (value ? Printable(*value, control) : std::string("not set")) << '\n';
    if (control) {
        std::cerr << "nimhost: the value holds control characters (shown escaped)\n";
    }
    SayDiagnosis(diagnosis, field);
    return ExitCode::Success;
}

namespace {

// What a write would do, found on a copy of the file before anything is
// written.
struct Plan {
    // The file as it stands; empty when there is none (the write then fails
    // and says why).
    std::optional<std::string> before;
    std::optional<TrialOutcome> trial;
    // The change as a unified diff; empty when nothing changes.
    std::string diff;
    EditVerdict verdict;
    // Why the write is not made, when nimhost refuses it.
    std::string refusal;
};

constexpr std::string_view forceHint = " (--force writes it anyway)";
constexpr std::string_view untried = "nimhost could not try the change on a copy of {} first: {}; --force writes it "
                                     "unchecked";
constexpr std::string_view changedMeanwhile = "nimhost: warning: {} changed while nimhost wrote it (another writer?); "
                                              "check it with `nimhost report`\n";

Plan MakePlan(const IpSetRequest& request, const std::string& interfaceName, const std::optional<std::string>& text,
              const ConfigDiagnosis& diagnosis, const std::function<int()>& setter, const Presentation& how)
{
    Plan plan;
    plan.before = text;
    // The controller reads only the main file: a write cannot land where the
    // stanza is, and a second stanza is never the answer.
    if (diagnosis.sourced && !diagnosis.sourced->alsoInMain && !request.force) {
        plan.refusal = diagnosis.sourcedSentence;
        return plan;
    }
    if (!plan.before || (request.force && !request.dryRun)) {
        return plan;
    }
    try {
        plan.trial = TryOnCopy(interfacesFile, *plan.before, setter, how.log);
    } catch (const TrialUnavailable& e) {
        if (!request.force) {
            plan.refusal = fmt::format(untried, interfacesFile, e.what());
        }
        return plan;
    }
    if (plan.trial->result != 0) {
        return plan;
    }
    plan.diff = UnifiedDiff(*plan.before, plan.trial->after, interfacesFile);
    const std::string key = FileKey(request.field);
    plan.verdict = CheckEdit(*plan.before, plan.trial->after,
                             {interfaceName, key, key == "inet" ? WrittenMethodWord(request.value) : request.value});
    if (!plan.verdict.allowed && !request.force) {
        plan.refusal = plan.verdict.reason + std::string(forceHint);
    }
    return plan;
}

} // namespace

int RunIpSet(const PluginHost& host, const IpSetRequest& request, const Presentation& how, std::ostream& out)
{
    auto& config = host.Get<IIpConfigModule>();
    const std::string interfaceName = host.Get<IEthernetInfoModule>().GetInterfaceName(request.device);
    const std::string& field = request.field;
    const Configured before = ReadConfigured(config, request.device, field);
    const auto text = ReadInterfacesFile();
    const ConfigDiagnosis diagnosis =
        Diagnose(text, interfaceName, before.value ? std::vector<std::string>{field} : std::vector<std::string>{});
    bool control = false;
    const std::string beforeText = before.unreadable ? std::string("unreadable")
        : before.value                               ? Printable(*before.value, control)
                                                     : std::string("not set");
    std::string change =
        fmt::format("{} {}: {} -> {}", interfaceName, field, beforeText, Printable(request.value, control));

    const auto setter = [&]() -> int {
        return static_cast<int>(field == "mode" ? config.SetIpAssignMode(request.device, ParseMethodWord(request.value))
                                                : SetValue(config, request.device, field, BasicString(request.value)));
    };
    const Plan plan = MakePlan(request, interfaceName, text, diagnosis, setter, how);
    if (!plan.verdict.methodChange.empty()) {
        change += fmt::format(" (mode: {})", plan.verdict.methodChange);
    }

    AccessErrorCode result = AccessErrorCode::Success;
    std::string cause = plan.refusal;
    std::string errorType = plan.refusal.empty() ? "write" : "refused";
    if (cause.empty() && plan.trial && plan.trial->result != 0) {
        result = static_cast<AccessErrorCode>(plan.trial->result);
        cause = ExplainFailedWrite(interfaceName, FileKey(field), plan.trial->errors);
    }
    if (cause.empty() && !request.dryRun) {
        const std::size_t mark = how.log != nullptr ? how.log->Mark() : 0;
        result = static_cast<AccessErrorCode>(setter());
        if (result != AccessErrorCode::Success) {
            const auto errors =
                how.log != nullptr ? how.log->TextsSince(mark, LogLevel::Error) : std::vector<std::string>{};
            cause = ExplainFailedWrite(interfaceName, FileKey(field), errors);
        } else if (plan.trial && ReadInterfacesFile() != plan.trial->after) {
            std::cerr << fmt::format(changedMeanwhile, interfacesFile);
        }
    }
    const bool failed = !cause.empty();
    if (how.json) {
        nlohmann::ordered_json document{{"device", request.device},
                                        {"interfaceName", interfaceName},
                                        {"field", field},
                                        {"before", OrNull(before.value)},
                                        {"value", request.value},
                                        {"written", !request.dryRun && !failed},
                                        {"result", static_cast<std::underlying_type_t<AccessErrorCode>>(result)},
                                        {"change", plan.diff}};
        if (before.unreadable) {
            document["before"] = {
                {"error",
                 {{"type", "unreadable"},
                  {"message", DescribeUnreadable(plan.before, interfaceName, field, request.device)}}}};
        }
        document["foreign"] = ForeignJson(diagnosis, field);
        if (failed) {
            document["error"] = {{"type", errorType},
                                 {"message", cause},
                                 {"exitCode", static_cast<int>(ExitCode::OperationFailed)}};
        }
        out << document.dump(2) << '\n';
    }
    if (const auto found = diagnosis.foreign.find(field); found != diagnosis.foreign.end() && !failed) {
        std::cerr << "nimhost: " << found->second.sentence << '\n';
    }
    if (!how.json && request.dryRun) {
        out << (failed ? std::string() : change + " (dry run: not written)\n") << plan.diff;
    }
    if (failed) {
        std::cerr << fmt::format("nimhost: {} not written: {}\n", change, cause);
        if (how.technical && result != AccessErrorCode::Success) {
            std::cerr << fmt::format("nimhost: the module returned {}\n", DescribeAccessErrorCode(result));
        }
        return ExitCode::OperationFailed;
    }
    if (!how.json && !request.dryRun) {
        out << change << '\n';
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
