// Reads the default gateway from arbitrary route tables and checks what must
// hold whatever the bytes are:
//   - the status is 0 (a table that can be opened is never a failure);
//   - the result is dotted decimal of four octets;
//   - a name that appears nowhere in the table has no default route, so the
//     answer is "0.0.0.0";
//   - a short default-route line for the name appended at the end of the
//     table is the last matching line, so its gateway is the answer, read
//     lowest byte first, whatever comes before it.
//
// Input: byte 0 selects the interface name (bits 0-1: eth0, the 15-character
// ipstatus-abcdef, the 22-character ipstatus-abcdef-longer, or one from the
// input) and whether a default-route line is appended (bit 2); then, when
// chosen, a length byte and the name; then, when appended, four bytes of the
// gateway; the rest is the table.
#include "fuzz/support/FuzzSupport.hpp"

#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include <fmt/format.h>

namespace {

using Zel::Fuzz::Check;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::System::Commons::BasicString;

std::string file;
std::unique_ptr<IpStatusSocketAccess> socketAccess;

std::string DottedQuad(unsigned a, unsigned b, unsigned c, unsigned d)
{
    return fmt::format("{}.{}.{}.{}", a, b, c, d);
}

bool IsDottedQuad(const std::string& text)
{
    unsigned int o[4] = {};
    char end = '\0';
    return std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%c", &o[0], &o[1], &o[2], &o[3], &end) == 4 &&
        std::max({o[0], o[1], o[2], o[3]}) <= 255 && DottedQuad(o[0], o[1], o[2], o[3]) == text;
}

const char* const fixedNames[] = {"eth0", "ipstatus-abcdef", "ipstatus-abcdef-longer"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    file = Zel::Fuzz::SetUp("route");
    socketAccess = std::make_unique<IpStatusSocketAccess>(BasicString(file));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Zel::Fuzz::Input input(data, size);
    const std::uint8_t selector = input.Byte();
    const std::string name = (selector & 3u) < 3 ? std::string(fixedNames[selector & 3u]) : input.Counted();
    std::uint32_t gateway = 0;
    for (int i = 0; i < 4 && (selector & 4u) != 0; ++i) {
        gateway = (gateway << 8) | input.Byte();
    }
    std::string table = input.Rest();
    // The appended line fits one piece and starts one, so it is read as a
    // line of its own, and it is the file's last.
    const bool appended = (selector & 4u) != 0 && !name.empty() && name.size() < 40 &&
        name.find_first_of(std::string_view("\t\n\0", 3)) == std::string::npos;
    if (appended) {
        table += fmt::format("\n{}\t00000000\t{:08X}\t0003\t0\t0\t0\t00000000\t0\t0\t0\n", name, gateway);
    }
    Zel::Test::WriteFile(file, table);

    BasicString result("unchanged");
    const int status = socketAccess->GetCurrentDefaultGateway(1, 1, BasicString(name), result);
    Check(status == 0, "status", std::to_string(status));
    Check(IsDottedQuad(result), "result is no dotted quad:", result);
    // The name as the table comparison sees it: up to its first NUL byte.
    const std::string compared(name.c_str());
    Check(!(compared.empty() || table.find(compared) == std::string::npos) || result == "0.0.0.0",
          "name absent from the table but a gateway found:", result);
    const std::string expected =
        DottedQuad(gateway & 0xFFu, (gateway >> 8) & 0xFFu, (gateway >> 16) & 0xFFu, gateway >> 24);
    Check(!appended || result == expected, "the last default route did not win:", result + " != " + expected);
    return 0;
}
