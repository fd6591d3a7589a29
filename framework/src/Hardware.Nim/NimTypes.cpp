#include <Zel/Hardware/Nim/NimTypes.hpp>

#include <array>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zel::Hardware::Nim {

namespace {

template <typename E>
struct Named {
    E value;
    std::string_view text;
};

constexpr std::array<Named<LinkState>, 3> linkStateNames{
    {{LinkState::Down, "down"}, {LinkState::Up, "up"}, {LinkState::Unknown, "unknown"}}};
constexpr std::array<Named<LinkSpeed>, 4> linkSpeedNames{{{LinkSpeed::Unknown, "unknown"},
                                                          {LinkSpeed::Speed10, "10"},
                                                          {LinkSpeed::Speed100, "100"},
                                                          {LinkSpeed::Speed1000, "1000"}}};
constexpr std::array<Named<LinkDuplex>, 3> linkDuplexNames{
    {{LinkDuplex::Unknown, "unknown"}, {LinkDuplex::Half, "half"}, {LinkDuplex::Full, "full"}}};
constexpr std::array<Named<NetworkInterfaceType>, 6> interfaceTypeNames{{{NetworkInterfaceType::Unknown, "Unknown"},
                                                                         {NetworkInterfaceType::Ethernet, "Ethernet"},
                                                                         {NetworkInterfaceType::Fieldbus, "Fieldbus"},
                                                                         {NetworkInterfaceType::Service, "Service"},
                                                                         {NetworkInterfaceType::Internal, "Internal"},
                                                                         {NetworkInterfaceType::Wireless, "Wireless"}}};
constexpr std::array<Named<IpAssignMode>, 6> assignModeNames{{{IpAssignMode::Static, "static"},
                                                              {IpAssignMode::Dhcp, "dhcp"},
                                                              {IpAssignMode::Manual, "manual"},
                                                              {IpAssignMode::Loopback, "loopback"},
                                                              {IpAssignMode::Ppp, "ppp"},
                                                              {IpAssignMode::Bootp, "bootp"}}};
constexpr std::array<Named<AccessErrorCode>, 7> accessErrorNames{
    {{AccessErrorCode::Success, "Success"},
     {AccessErrorCode::Failed, "Failed"},
     {AccessErrorCode::NotSupported, "NotSupported"},
     {AccessErrorCode::AccessDenied, "AccessDenied"},
     {AccessErrorCode::OutOfRange, "OutOfRange"},
     {AccessErrorCode::Busy, "Busy"},
     {AccessErrorCode::InvalidArgument, "InvalidArgument"}}};

template <typename E, std::size_t N>
std::ostream& WriteNamed(std::ostream& out, E value, const std::array<Named<E>, N>& names, bool numberIfUnnamed)
{
    for (const auto& entry : names) {
        if (entry.value == value) {
            return out << entry.text;
        }
    }
    if (numberIfUnnamed) {
        return out << static_cast<long long>(static_cast<std::underlying_type_t<E>>(value));
    }
    out.setstate(std::ios_base::failbit);
    return out;
}

template <typename E, std::size_t N>
std::istream& ReadNamed(std::istream& in, E& value, const std::array<Named<E>, N>& names, bool acceptNumber)
{
    std::string word;
    if (!(in >> word)) {
        return in;
    }
    for (const auto& entry : names) {
        if (entry.text == word) {
            value = entry.value;
            return in;
        }
    }
    if (acceptNumber && !word.empty()) {
        using U = std::underlying_type_t<E>;
        try {
            std::size_t used = 0;
            const long long number = std::stoll(word, &used, 10);
            if (used == word.size()) {
                for (const auto& entry : names) {
                    if (static_cast<long long>(static_cast<U>(entry.value)) == number) {
                        value = entry.value;
                        return in;
                    }
                }
            }
        } catch (const std::exception&) {
        }
    }
    in.setstate(std::ios_base::failbit);
    return in;
}

} // namespace

std::ostream& operator<<(std::ostream& out, LinkState value)
{
    return WriteNamed(out, value, linkStateNames, true);
}
std::ostream& operator<<(std::ostream& out, LinkSpeed value)
{
    return WriteNamed(out, value, linkSpeedNames, true);
}
std::ostream& operator<<(std::ostream& out, LinkDuplex value)
{
    return WriteNamed(out, value, linkDuplexNames, true);
}
std::ostream& operator<<(std::ostream& out, NetworkInterfaceType value)
{
    return WriteNamed(out, value, interfaceTypeNames, false);
}
std::ostream& operator<<(std::ostream& out, IpAssignMode value)
{
    return WriteNamed(out, value, assignModeNames, false);
}
std::ostream& operator<<(std::ostream& out, AccessErrorCode value)
{
    return WriteNamed(out, value, accessErrorNames, false);
}

std::istream& operator>>(std::istream& in, LinkState& value)
{
    return ReadNamed(in, value, linkStateNames, true);
}
std::istream& operator>>(std::istream& in, LinkSpeed& value)
{
    return ReadNamed(in, value, linkSpeedNames, true);
}
std::istream& operator>>(std::istream& in, LinkDuplex& value)
{
    return ReadNamed(in, value, linkDuplexNames, true);
}
std::istream& operator>>(std::istream& in, NetworkInterfaceType& value)
{
    return ReadNamed(in, value, interfaceTypeNames, false);
}
std::istream& operator>>(std::istream& in, IpAssignMode& value)
{
    return ReadNamed(in, value, assignModeNames, false);
}
std::istream& operator>>(std::istream& in, AccessErrorCode& value)
{
    return ReadNamed(in, value, accessErrorNames, true);
}

} // namespace Zel::Hardware::Nim
