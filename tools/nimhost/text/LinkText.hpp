#pragma once

#include <Zel/Hardware/Nim/NimTypes.hpp>

#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// Human texts of the codes the modules return, each with the raw number
// beside it ("up (1)", "100 Mbit/s (2)", "full (2)"), so that a reader sees
// both what it means and what the framework receives.
std::string DescribeLinkState(Zel::Hardware::Nim::LinkState state);
std::string DescribeLinkSpeed(Zel::Hardware::Nim::LinkSpeed speed);
std::string DescribeLinkDuplex(Zel::Hardware::Nim::LinkDuplex duplex);
std::string DescribeInterfaceType(Zel::Hardware::Nim::NetworkInterfaceType type);
std::string DescribeAssignMode(Zel::Hardware::Nim::IpAssignMode mode);
std::string DescribeAccessErrorCode(Zel::Hardware::Nim::AccessErrorCode code);

// The framework's text of an assignment method ("static", "dhcp", ...);
// empty for a value without a name.
std::string AssignModeWord(Zel::Hardware::Nim::IpAssignMode mode);

// Parses a method word with the framework's own reader, as the IP
// configuration module reads the "inet" method; false when it names no
// method (the whole text must be one word).
bool ParseAssignMode(const std::string& word, Zel::Hardware::Nim::IpAssignMode& mode);

// Every method word the framework knows, in the order of their values.
std::vector<std::string> AssignModeWords();

} // namespace Zel::Tools::Nimhost
