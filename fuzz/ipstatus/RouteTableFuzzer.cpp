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
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include <stdlib.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::System::Commons::BasicString;

// Every message is formatted (level 8) but goes nowhere.
class DiscardSink : public Zel::System::Commons::Logging::ILogSink {
public:
    void Write(int, std::string_view, std::string_view) override {}
};

struct Environment {
    std::unique_ptr<Zel::System::Commons::AppDomain> appDomain;
    std::string directory;
    std::string file;
    std::unique_ptr<IpStatusSocketAccess> access;
};

Environment& Env()
{
    static Environment environment;
    return environment;
}

void RemoveDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(Env().directory, ignored);
}

void Check(bool condition, const char* what, const std::string& detail = std::string())
{
    if (!condition) {
        std::fprintf(stderr, "ipstatus fuzz property violated: %s %s\n", what, detail.c_str());
        std::abort();
    }
}

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    std::uint8_t Byte() { return position < size ? data[position++] : 0; }

    std::string Counted()
    {
        const std::size_t length = std::min<std::size_t>(Byte(), size - position);
        std::string text(reinterpret_cast<const char*>(data + position), length);
        position += length;
        return text;
    }

    std::string Rest()
    {
        std::string text(reinterpret_cast<const char*>(data + position), size - position);
        position = size;
        return text;
    }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
};

bool IsDottedQuad(const std::string& text)
{
    unsigned int octets[4] = {};
    char end = '\0';
    if (std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%c", &octets[0], &octets[1], &octets[2], &octets[3], &end) != 4) {
        return false;
    }
    return std::all_of(std::begin(octets), std::end(octets), [](unsigned int octet) { return octet <= 255; }) &&
           fmt::format("{}.{}.{}.{}", octets[0], octets[1], octets[2], octets[3]) == text;
}

const char* const fixedNames[] = {"eth0", "ipstatus-abcdef", "ipstatus-abcdef-longer"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Environment& env = Env();
    env.appDomain = std::make_unique<Zel::System::Commons::AppDomain>();
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(std::make_shared<DiscardSink>());
    env.appDomain->AddSingleton(logManager);

    const char* base = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/zel-ipstatus-fuzz-XXXXXX";
    Check(::mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    env.directory = pattern;
    env.file = pattern + "/route";
    env.access = std::make_unique<IpStatusSocketAccess>(BasicString(env.file));
    std::atexit(RemoveDirectory);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Environment& env = Env();
    Input input(data, size);
    const std::uint8_t selector = input.Byte();
    const unsigned nameChoice = selector & 3u;
    const bool appendDefaultRoute = (selector & 4u) != 0;
    const std::string name = nameChoice < 3 ? std::string(fixedNames[nameChoice]) : input.Counted();
    std::uint32_t gateway = 0;
    if (appendDefaultRoute) {
        for (int i = 0; i < 4; ++i) {
            gateway = (gateway << 8) | input.Byte();
        }
    }
    std::string table = input.Rest();

    // The appended line fits one piece and starts one, so it is read as a
    // line of its own, and it is the file's last.
    const bool nameFitsALine = !name.empty() && name.size() < 40 && name.find_first_of("\t\n", 0) == std::string::npos &&
                               name.find('\0') == std::string::npos;
    const bool appended = appendDefaultRoute && nameFitsALine;
    if (appended) {
        table += fmt::format("\n{}\t00000000\t{:08X}\t0003\t0\t0\t0\t00000000\t0\t0\t0\n", name, gateway);
    }
    {
        std::ofstream out(env.file, std::ios::binary | std::ios::trunc);
        out << table;
        out.close();
        Check(static_cast<bool>(out), "could not write the table");
    }

    BasicString result("unchanged");
    const int status = env.access->GetCurrentDefaultGateway(1, 1, BasicString(name), result);
    Check(status == 0, "status", std::to_string(status));
    Check(IsDottedQuad(result), "result is no dotted quad:", result);

    // The name as the table comparison sees it: up to its first NUL byte.
    const std::string compared(name.c_str());
    if (compared.empty() || table.find(compared) == std::string::npos) {
        Check(result == "0.0.0.0", "name absent from the table but a gateway found:", result);
    }
    if (appended) {
        const std::string expected = fmt::format("{}.{}.{}.{}", gateway & 0xFFu, (gateway >> 8) & 0xFFu,
                                                 (gateway >> 16) & 0xFFu, gateway >> 24);
        Check(result == expected, "the last default route did not win:", result + " != " + expected);
    }
    return 0;
}
