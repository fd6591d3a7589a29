#pragma once

#include <string>

namespace Zel::Tools::Nimhost {

// A value from a file as a terminal can show it: control characters written
// as escapes ("\r", "\t", "\x01"), so "192.168.1.1\r" does not look like
// "192.168.1.1". `hadControl` is set when something was escaped.
std::string Printable(const std::string& text, bool& hadControl);

} // namespace Zel::Tools::Nimhost
