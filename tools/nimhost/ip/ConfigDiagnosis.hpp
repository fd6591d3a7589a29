#pragma once

#include "ip/SourcedStanza.hpp"
#include "ip/ValueOrigin.hpp"

#include <nlohmann/json.hpp>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// What nimhost says about an interface's configured values beyond the values
// the module reads: where a value really comes from, and where the interface
// is configured when the controller does not read that file. From the
// interfaces file as it stands, read only.

// The module's key for one of nimhost's fields (dns: "dns-nameservers",
// mode: "inet").
std::string FileKey(const std::string& field);

// Whether a configured-value getter's failure means only that the file holds
// no such value (no file, no iface block, no key): the module then throws
// with result code 1.
bool IsNotSet(const std::string& errorType, const std::string& errorMessage);

// The interfaces file's content; empty when it cannot be read.
std::optional<std::string> ReadInterfacesFile();

struct ConfigDiagnosis {
    // By field: the values the module reads from a line that is not the
    // interface's own.
    std::map<std::string, ForeignValue> foreign;
    // The interface's stanza lies in a file that the main file includes.
    std::optional<SourcedStanza> sourced;
    std::string sourcedSentence;
};

// `fields` are those whose value the module did read; only they can come
// from elsewhere.
ConfigDiagnosis Diagnose(const std::optional<std::string>& text, const std::string& interfaceName,
                         const std::vector<std::string>& fields);

// JSON forms: {"line": N, "stanza": ..., "key": ..., "message": ...} and
// {"file": ..., "line": N, "message": ...}; null when there is nothing to say.
nlohmann::ordered_json ForeignJson(const ConfigDiagnosis& diagnosis, const std::string& field);
nlohmann::ordered_json SourcedJson(const ConfigDiagnosis& diagnosis);

} // namespace Zel::Tools::Nimhost
