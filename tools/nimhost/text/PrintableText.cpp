#include "text/PrintableText.hpp"

#include <fmt/format.h>

namespace Zel::Tools::Nimhost {

std::string Printable(const std::string& text, bool& hadControl)
{
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20U && byte != 0x7FU) {
            shown += c;
            continue;
        }
        hadControl = true;
        switch (c) {
        case '\r':
            shown += "\\r";
            break;
        case '\n':
            shown += "\\n";
            break;
        case '\t':
            shown += "\\t";
            break;
        default:
            shown += fmt::format("\\x{:02x}", static_cast<unsigned int>(byte));
        }
    }
    return shown;
}

} // namespace Zel::Tools::Nimhost
