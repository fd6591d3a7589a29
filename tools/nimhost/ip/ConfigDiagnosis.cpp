#include "ip/ConfigDiagnosis.hpp"

#include "ip/WriteFailure.hpp"

#include <string_view>

namespace Zel::Tools::Nimhost {

namespace {

nlohmann::ordered_json OrNull(const std::string& text)
{
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

} // namespace

std::string FileKey(const std::string& field)
{
    return field == "dns" ? "dns-nameservers" : field == "mode" ? "inet" : field;
}

bool IsNotSet(const std::string& errorType, const std::string& errorMessage)
{
    constexpr std::string_view notFound = "ReadValueFromInterface() returned 1";
    return errorType.find("InvalidOperationException") != std::string::npos && errorMessage.size() >= notFound.size() &&
        errorMessage.compare(errorMessage.size() - notFound.size(), notFound.size(), notFound) == 0;
}

std::optional<std::string> ReadInterfacesFile()
{
    return RealFileTree().Read(interfacesFile);
}

ConfigDiagnosis Diagnose(const std::optional<std::string>& text, const std::string& interfaceName,
                         const std::vector<std::string>& fields)
{
    ConfigDiagnosis diagnosis;
    if (!text || interfaceName.empty()) {
        return diagnosis;
    }
    const InterfacesText file(*text);
    for (const auto& field : fields) {
        if (auto foreign = FindForeignValue(file, interfaceName, FileKey(field), field)) {
            diagnosis.foreign.emplace(field, std::move(*foreign));
        }
    }
    diagnosis.sourced = FindSourcedStanza(interfacesFile, *text, interfaceName, RealFileTree());
    if (diagnosis.sourced) {
        diagnosis.sourcedSentence = DescribeSourcedStanza(interfaceName, *diagnosis.sourced, interfacesFile);
    }
    return diagnosis;
}

nlohmann::ordered_json ForeignJson(const ConfigDiagnosis& diagnosis, const std::string& field)
{
    const auto found = diagnosis.foreign.find(field);
    if (found == diagnosis.foreign.end()) {
        return nullptr;
    }
    const ForeignValue& foreign = found->second;
    return {{"line", foreign.line + 1},
            {"stanza", OrNull(foreign.stanza)},
            {"key", OrNull(foreign.lineKey)},
            {"message", foreign.sentence}};
}

nlohmann::ordered_json SourcedJson(const ConfigDiagnosis& diagnosis)
{
    if (!diagnosis.sourced) {
        return nullptr;
    }
    return {{"file", diagnosis.sourced->file},
            {"line", diagnosis.sourced->line + 1},
            {"message", diagnosis.sourcedSentence}};
}

} // namespace Zel::Tools::Nimhost
