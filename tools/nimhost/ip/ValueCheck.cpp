#include "ip/ValueCheck.hpp"

#include "text/UsageError.hpp"

#include <fmt/format.h>

#include <arpa/inet.h>

#include <algorithm>
#include <vector>

namespace Zel::Tools::Nimhost {

namespace {

bool AllDigits(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsNetmask(std::uint32_t mask)
{
    // Contiguous ones from the top: the inverted mask plus one is a power of two.
    const std::uint64_t hostPart = static_cast<std::uint64_t>(~mask) + 1U;
    return (hostPart & (hostPart - 1U)) == 0U;
}

[[noreturn]] void Refuse(const std::string& field, const std::string& value, const std::string& accepted)
{
    if (value.empty()) {
        throw UsageError(fmt::format("the {} is empty: use {}", field, accepted));
    }
    throw UsageError(fmt::format("'{}' is not a valid {}: use {}", value, field, accepted));
}

} // namespace

std::optional<std::uint32_t> ParseIpv4(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::uint32_t PrefixToNetmask(unsigned int prefix)
{
    return prefix == 0U ? 0U : static_cast<std::uint32_t>(0xFFFFFFFFULL << (32U - std::min(prefix, 32U)));
}

std::optional<unsigned int> ParsePrefix(const std::string& text)
{
    const auto slash = text.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const std::string digits = text.substr(slash + 1);
    if (!AllDigits(digits) || digits.size() > 2 || (digits.size() == 2 && digits[0] == '0')) {
        return std::nullopt;
    }
    const auto prefix = static_cast<unsigned int>(std::stoul(digits));
    return prefix <= 32U ? std::optional<unsigned int>(prefix) : std::nullopt;
}

unsigned int CheckDevice(const std::string& text, unsigned int deviceCount)
{
    const std::string range = deviceCount == 0 ? std::string("this board has no devices (nimhost report shows why)")
        : deviceCount == 1                     ? std::string("this board has device 1")
                                               : fmt::format("this board has devices 1\u2013{}", deviceCount);
    if (!AllDigits(text) || text.size() > 9) {
        throw UsageError(text.empty() ? fmt::format("no device number given; {}", range)
                                      : fmt::format("device '{}' is not a device number; {}", text, range));
    }
    const auto device = static_cast<unsigned int>(std::stoul(text));
    if (device == 0U || device > deviceCount) {
        throw UsageError(fmt::format("device {} does not exist; {}", text, range));
    }
    return device;
}

void CheckValue(const std::string& field, const std::string& value)
{
    if (field == "address") {
        const auto slash = value.find('/');
        if (!ParseIpv4(value.substr(0, slash)) || (slash != std::string::npos && !ParsePrefix(value))) {
            Refuse(field, value, "an IPv4 address with an optional /prefix of 0 to 32, such as 192.168.1.10/24");
        }
    } else if (field == "netmask") {
        const auto mask = ParseIpv4(value);
        if (!mask || !IsNetmask(*mask)) {
            Refuse(field, value, "a dotted-quad netmask with contiguous ones, such as 255.255.255.0");
        }
    } else if (field == "gateway") {
        if (!ParseIpv4(value)) {
            Refuse(field, value, "an IPv4 address, such as 192.168.1.1");
        }
    } else if (field == "dns") {
        // Single blanks between servers: the file keeps the text exactly as given.
        bool ok = !value.empty();
        for (std::size_t begin = 0; ok && begin <= value.size();) {
            const std::size_t end = std::min(value.find(' ', begin), value.size());
            ok = ParseIpv4(value.substr(begin, end - begin)).has_value();
            begin = end + 1;
        }
        if (!ok) {
            Refuse("list of name servers", value,
                   "one or more IPv4 addresses separated by single spaces, such as \"192.168.1.1 9.9.9.9\"");
        }
    }
}

} // namespace Zel::Tools::Nimhost
