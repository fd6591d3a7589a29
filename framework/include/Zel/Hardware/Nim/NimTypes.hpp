#pragma once

#include <Zel/Export.hpp>

#include <cstdint>
#include <iosfwd>

namespace Zel::Hardware::Nim {

// Link state of a port. Unknown is 255, unlike speed and duplex, whose
// unknown is 0.
enum class LinkState : std::uint8_t {
    Down = 0,
    Up = 1,
    Unknown = 255,
};

enum class LinkSpeed : std::uint8_t {
    Unknown = 0,
    Speed10 = 1,
    Speed100 = 2,
    Speed1000 = 3,
};

enum class LinkDuplex : std::uint8_t {
    Unknown = 0,
    Half = 1,
    Full = 2,
};

// What a controller uses an Ethernet device for. Text forms are the
// enumerator names ("Ethernet", "Fieldbus", ...).
enum class NetworkInterfaceType : std::int32_t {
    Unknown = 0,
    Ethernet = 1,
    Fieldbus = 2,
    Service = 3,
    Internal = 4,
    Wireless = 5,
};

// Address assignment method of an interface. Text forms are ifupdown method
// words, so every named value is a valid "inet" method.
enum class IpAssignMode : std::uint8_t {
    Static = 0,
    Dhcp = 1,
    Manual = 2,
    Loopback = 3,
    Ppp = 4,
    Bootp = 5,
};

// Result code of module operations.
enum class AccessErrorCode : std::int32_t {
    Success = 0,
    Failed = 1,
    NotSupported = 2,
    AccessDenied = 5,
    OutOfRange = 7,
    Busy = 16,
    InvalidArgument = 22,
};

// Output writes the text form (the number for link codes without a name);
// a NetworkInterfaceType, IpAssignMode or AccessErrorCode value without a name
// sets the stream's fail state and writes nothing. Input reads one word and
// accepts the text form (or, for the link codes and AccessErrorCode, the
// number); anything else sets the fail state and leaves the value unchanged.
ZEL_API std::ostream& operator<<(std::ostream& out, LinkState value);
ZEL_API std::ostream& operator<<(std::ostream& out, LinkSpeed value);
ZEL_API std::ostream& operator<<(std::ostream& out, LinkDuplex value);
ZEL_API std::ostream& operator<<(std::ostream& out, NetworkInterfaceType value);
ZEL_API std::ostream& operator<<(std::ostream& out, IpAssignMode value);
ZEL_API std::ostream& operator<<(std::ostream& out, AccessErrorCode value);

ZEL_API std::istream& operator>>(std::istream& in, LinkState& value);
ZEL_API std::istream& operator>>(std::istream& in, LinkSpeed& value);
ZEL_API std::istream& operator>>(std::istream& in, LinkDuplex& value);
ZEL_API std::istream& operator>>(std::istream& in, NetworkInterfaceType& value);
ZEL_API std::istream& operator>>(std::istream& in, IpAssignMode& value);
ZEL_API std::istream& operator>>(std::istream& in, AccessErrorCode& value);

} // namespace Zel::Hardware::Nim
