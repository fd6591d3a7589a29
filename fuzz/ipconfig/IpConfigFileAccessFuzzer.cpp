// Reads from and writes into arbitrary interfaces files with arbitrary
// interface names, keys and values, and checks what must hold whatever the
// bytes are:
//   - writing never throws; reading throws only std::out_of_range, and only
//     when some line has the key followed by nothing but blanks;
//   - a read that answers 1 leaves the value alone, one that answers 0 gives
//     a non-empty piece of one line;
//   - a write that answers 1 leaves the file byte for byte as it was (always
//     so for a value with a line feed, carriage return or NUL byte), one
//     that answers 0 leaves a file whose lines all end in a line feed, that
//     lost no line, and that holds the new parameter line;
//   - no temporary file is left behind.
//
// Input: byte 0 selects the call (bit 0: write), the key (bits 1-3: address,
// netmask, gateway, dns-nameservers, inet, or one from the input) and the
// interface (bits 4-6: eth0, eth1, eth10, lo, or one from the input); then a
// length byte and the value; then, when chosen, a length byte and the key,
// and a length byte and the interface name; the rest is the file.
#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <stdlib.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
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
    std::unique_ptr<IpConfigFileAccess> access;
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

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "ipconfig fuzz property violated: %s\n", what);
    std::abort();
}

void Check(bool condition, const char* what)
{
    if (!condition) {
        Fail(what);
    }
}

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    std::uint8_t Byte()
    {
        return position < size ? data[position++] : 0;
    }

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

// The lines as the file access reads them: split at line feeds, a last line
// without one included, no empty line after a final line feed.
std::size_t LineCount(const std::string& content)
{
    std::size_t lines = 0;
    for (char c : content) {
        lines += c == '\n' ? 1u : 0u;
    }
    if (!content.empty() && content.back() != '\n') {
        ++lines;
    }
    return lines;
}

bool SomeLineEndsAfterKey(const std::string& content, const std::string& key)
{
    for (std::size_t start = 0; start < content.size();) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos) {
            end = content.size();
        }
        const std::string line = content.substr(start, end - start);
        const std::size_t found = line.find(key);
        if (found != std::string::npos) {
            std::size_t position = found + key.size();
            while (position < line.size() && line[position] == ' ') {
                ++position;
            }
            if (position == line.size()) {
                return true;
            }
        }
        start = end + 1;
    }
    return false;
}

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    Check(static_cast<bool>(out), "could not write the input file");
}

const char* const fixedKeys[] = {"address", "netmask", "gateway", "dns-nameservers", "inet"};
const char* const fixedInterfaces[] = {"eth0", "eth1", "eth10", "lo"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Environment& env = Env();
    env.appDomain = std::make_unique<Zel::System::Commons::AppDomain>();
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(std::make_shared<DiscardSink>());
    env.appDomain->AddSingleton(logManager);

    // tmpfs where there is one: every successful write syncs the file.
    const char* base = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/zel-ipconfig-fuzz-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        Fail("mkdtemp");
    }
    env.directory = pattern;
    env.file = pattern + "/interfaces";
    env.access = std::make_unique<IpConfigFileAccess>(
        std::vector<BasicString>{"address", "netmask", "gateway", "dns-nameservers"}, BasicString(env.file));
    std::atexit(RemoveDirectory);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Environment& env = Env();
    Input input(data, size);
    const std::uint8_t selector = input.Byte();
    const bool write = (selector & 1u) != 0;
    const unsigned keyChoice = (selector >> 1u) & 7u;
    const unsigned interfaceChoice = (selector >> 4u) & 7u;
    const BasicString value(input.Counted());
    const BasicString key(keyChoice < 5 ? std::string(fixedKeys[keyChoice]) : input.Counted());
    const BasicString interfaceName(interfaceChoice < 4 ? std::string(fixedInterfaces[interfaceChoice])
                                                        : input.Counted());
    const std::string content = input.Rest();
    WriteAll(env.file, content);

    if (!write) {
        const BasicString sentinel("\x01unchanged");
        BasicString read = sentinel;
        int result = -1;
        try {
            result = env.access->ReadIpPara(interfaceName, key, read);
        } catch (const std::out_of_range&) {
            Check(SomeLineEndsAfterKey(content, key), "out_of_range without a line that ends after the key");
            return 0;
        }
        Check(result == 0 || result == 1, "read result is neither 0 nor 1");
        if (result == 1) {
            Check(read == sentinel, "a failed read changed the value");
        } else {
            Check(!read.empty(), "a successful read gave an empty value");
            Check(read.find('\n') == std::string::npos, "a read value spans lines");
            Check(content.find(read) != std::string::npos, "a read value is not in the file");
        }
        return 0;
    }

    const int result = env.access->WriteIpPara(interfaceName, key, value);
    const std::string after = ReadAll(env.file);
    Check(::access((env.file + ".tmp").c_str(), F_OK) != 0, "the temporary file was left behind");
    Check(result == 0 || result == 1, "write result is neither 0 nor 1");
    if (value.find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos) {
        Check(result == 1, "a value with a line break or NUL was written");
    }
    if (result == 1) {
        Check(after == content, "a failed write changed the file");
        return 0;
    }
    Check(!after.empty() && after.back() == '\n', "a written file does not end with a line feed");
    if (key == "inet") {
        Check(LineCount(after) == LineCount(content), "writing the method changed the number of lines");
    } else {
        Check(LineCount(after) >= LineCount(content), "a write lost lines");
        const std::string parameterLine = "    " + key + " " + value + "\n";
        const std::size_t found = after.find(parameterLine);
        bool atLineStart = false;
        for (std::size_t at = found; at != std::string::npos; at = after.find(parameterLine, at + 1)) {
            if (at == 0 || after[at - 1] == '\n') {
                atLineStart = true;
                break;
            }
        }
        Check(atLineStart, "a successful write does not hold the new parameter line");
    }
    return 0;
}
