#include "text/LinkText.hpp"

#include <fmt/format.h>

#include <limits>
#include <sstream>
#include <type_traits>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;

namespace {

template <typename E>
std::string WithNumber(const std::string& word, E value)
{
    return fmt::format("{} ({})", word, static_cast<long long>(static_cast<std::underlying_type_t<E>>(value)));
}

// The framework's stream text of a value; empty when it has no name.
template <typename E>
std::string StreamText(E value)
{
    std::ostringstream out;
    out << value;
    return out.fail() ? std::string() : out.str();
}

} // namespace

std::string DescribeLinkState(LinkState state)
{
    switch (state) {
    case LinkState::Down:
        return WithNumber("down", state);
    case LinkState::Up:
        return WithNumber("up", state);
    case LinkState::Unknown:
        return WithNumber("unknown", state);
    }
    return WithNumber("?", state);
}

std::string DescribeLinkSpeed(LinkSpeed speed)
{
    switch (speed) {
    case LinkSpeed::Unknown:
        return WithNumber("unknown", speed);
    case LinkSpeed::Speed10:
        return WithNumber("10 Mbit/s", speed);
    case LinkSpeed::Speed100:
        return WithNumber("100 Mbit/s", speed);
    case LinkSpeed::Speed1000:
        return WithNumber("1000 Mbit/s", speed);
    }
    return WithNumber("?", speed);
}

std::string DescribeLinkDuplex(LinkDuplex duplex)
{
    switch (duplex) {
    case LinkDuplex::Unknown:
        return WithNumber("unknown", duplex);
    case LinkDuplex::Half:
        return WithNumber("half", duplex);
    case LinkDuplex::Full:
        return WithNumber("full", duplex);
    }
    return WithNumber("?", duplex);
}

std::string DescribeInterfaceType(NetworkInterfaceType type)
{
    const std::string word = StreamText(type);
    return WithNumber(word.empty() ? "?" : word, type);
}

std::string DescribeAssignMode(IpAssignMode mode)
{
    const std::string word = AssignModeWord(mode);
    return WithNumber(word.empty() ? "?" : word, mode);
}

std::string DescribeAccessErrorCode(AccessErrorCode code)
{
    const std::string word = StreamText(code);
    return WithNumber(word.empty() ? "?" : word, code);
}

std::string AssignModeWord(IpAssignMode mode)
{
    return StreamText(mode);
}

bool ParseAssignMode(const std::string& word, IpAssignMode& mode)
{
    std::istringstream in(word);
    IpAssignMode parsed{};
    if (!(in >> parsed)) {
        return false;
    }
    // Nothing may follow the word: "dhcp x" is not a method.
    in >> std::ws;
    if (!in.eof()) {
        return false;
    }
    mode = parsed;
    return true;
}

std::vector<std::string> AssignModeWords()
{
    using Raw = std::underlying_type_t<IpAssignMode>;
    std::vector<std::string> words;
    for (unsigned int raw = 0; raw <= std::numeric_limits<Raw>::max(); ++raw) {
        std::string word = AssignModeWord(static_cast<IpAssignMode>(static_cast<Raw>(raw)));
        if (!word.empty()) {
            words.push_back(std::move(word));
        }
    }
    return words;
}

} // namespace Zel::Tools::Nimhost
