#pragma once

#include <string>

namespace Zel::Tools::Nimhost {

// Reports why a command failed: "nimhost: <text>" on standard error and, with
// --json, {"error": {"type": ..., "message": ..., "exitCode": N}} on standard
// output, so a script reading the document learns of the failure too. The
// JSON message may carry what the text leaves out (the exception's own text).
void ReportFailure(const std::string& type, const std::string& text, const std::string& jsonMessage, int exitCode,
                   bool json);

inline void ReportFailure(const std::string& type, const std::string& text, int exitCode, bool json)
{
    ReportFailure(type, text, text, exitCode, json);
}

} // namespace Zel::Tools::Nimhost
