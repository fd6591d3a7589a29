#pragma once

#include <stdexcept>
#include <string>
#include <utility>

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

// A module failure that nimhost can say in the user's terms (what()); the
// exception's own type and text stay for --json and --log-level 7.
class ExplainedFailure : public std::runtime_error {
public:
    ExplainedFailure(const std::string& text, std::string type, std::string message)
        : std::runtime_error(text), originalType(std::move(type)), originalMessage(std::move(message))
    {
    }

    std::string originalType;
    std::string originalMessage;
};

} // namespace Zel::Tools::Nimhost
