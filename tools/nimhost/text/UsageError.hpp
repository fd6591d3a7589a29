#pragma once

#include <stdexcept>
#include <string>

namespace Zel::Tools::Nimhost {

// A fault in what the user gave nimhost (command-line value or settings
// file), as opposed to a failure of the plug-in: exit code 2. The message is
// complete, including file, line and key where they are known.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

} // namespace Zel::Tools::Nimhost
