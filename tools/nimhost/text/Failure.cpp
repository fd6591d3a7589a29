#include "text/Failure.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

namespace Zel::Tools::Nimhost {

void ReportFailure(const std::string& type, const std::string& text, const std::string& jsonMessage, int exitCode,
                   bool json)
{
    std::cout.flush();
    // A settings file can have several faults: one line each.
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::cerr << "nimhost: " << text.substr(begin, end - begin) << '\n';
        begin = end + 1;
    }
    if (json) {
        const nlohmann::ordered_json document{
            {"error", {{"type", type}, {"message", jsonMessage}, {"exitCode", exitCode}}}};
        std::cout << document.dump(2) << '\n';
    }
}

} // namespace Zel::Tools::Nimhost
