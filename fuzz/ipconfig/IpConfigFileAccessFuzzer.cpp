// Reads from and writes into arbitrary interfaces files with arbitrary
// interface names, keys and values, and checks what must hold whatever the
// bytes are:
//   - writing never throws; reading throws only std::out_of_range, and only
//     when some line has the key followed by nothing but blanks;
//   - a read that answers 1 leaves the value alone, one that answers 0 gives
//     a non-empty piece of one line;
//   - a write that answers 1 leaves the file byte for byte as it was (always
//     so for a value with a line feed, carriage return or NUL byte, and for
//     an empty or blank one), one that answers 0 leaves a file whose lines
//     all end in a line feed, that lost no line, and that holds the new
//     parameter line;
//   - no temporary file is left behind.
//
// Input: byte 0 selects the call (bit 0: write), the key (bits 1-3: address,
// netmask, gateway, dns-nameservers, inet, or one from the input) and the
// interface (bits 4-6: eth0, eth1, eth10, lo, or one from the input); then a
// length byte and the value; then, when chosen, a length byte and the key,
// and a length byte and the interface name; the rest is the file.
#include "fuzz/support/FuzzSupport.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

using Zel::Fuzz::Check;
using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;

std::string file;
std::unique_ptr<IpConfigFileAccess> fileAccess;

bool SomeLineEndsAfterKey(const std::string& content, const std::string& key)
{
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t found = line.find(key);
        if (found != std::string::npos && line.find_first_not_of(' ', found + key.size()) == std::string::npos) {
            return true;
        }
    }
    return false;
}

// The lines as the file access reads them: a last line without a line feed
// counts, there is no empty line after a final line feed.
std::size_t LineCount(const std::string& content)
{
    const auto feeds = static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n'));
    return feeds + (!content.empty() && content.back() != '\n' ? 1u : 0u);
}

const char* const fixedKeys[] = {"address", "netmask", "gateway", "dns-nameservers", "inet"};
const char* const fixedInterfaces[] = {"eth0", "eth1", "eth10", "lo"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    file = Zel::Fuzz::SetUp("interfaces");
    fileAccess = Zel::Fuzz::InterfacesFileAccess(file);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Zel::Fuzz::Input input(data, size);
    const std::uint8_t selector = input.Byte();
    const unsigned keyChoice = (selector >> 1u) & 7u;
    const unsigned interfaceChoice = (selector >> 4u) & 7u;
    const BasicString value(input.Counted());
    const BasicString key(keyChoice < 5 ? std::string(fixedKeys[keyChoice]) : input.Counted());
    const BasicString interfaceName(interfaceChoice < 4 ? std::string(fixedInterfaces[interfaceChoice])
                                                        : input.Counted());
    const std::string content = input.Rest();
    Zel::Test::WriteFile(file, content);

    if ((selector & 1u) == 0) {
        const BasicString sentinel("\x01unchanged");
        BasicString read = sentinel;
        int result = -1;
        try {
            result = fileAccess->ReadIpPara(interfaceName, key, read);
        } catch (const std::out_of_range&) {
            Check(SomeLineEndsAfterKey(content, key), "out_of_range without a line that ends after the key");
            return 0;
        }
        Check(result == 0 || result == 1, "read result is neither 0 nor 1");
        Check(result == 0 || read == sentinel, "a failed read changed the value");
        Check(result == 1 ||
                  (!read.empty() && read.find('\n') == std::string::npos && content.find(read) != std::string::npos),
              "a successful read gave no piece of one line:", read);
        return 0;
    }

    const int result = fileAccess->WriteIpPara(interfaceName, key, value);
    const std::string after = Zel::Test::ReadFile(file);
    Check(::access((file + ".tmp").c_str(), F_OK) != 0, "the temporary file was left behind");
    Check(result == 0 || result == 1, "write result is neither 0 nor 1");
    Check(result == 1 || value.find_first_of(std::string_view("\n\r\0", 3)) == std::string::npos,
          "a value with a line break or NUL was written");
    Check(result == 1 || value.find_first_not_of(" \t") != std::string::npos, "an empty or blank value was written");
    if (result == 1) {
        Check(after == content, "a failed write changed the file");
        return 0;
    }
    Check(!after.empty() && after.back() == '\n', "a written file does not end with a line feed");
    if (key == "inet") {
        Check(LineCount(after) == LineCount(content), "writing the method changed the number of lines");
        return 0;
    }
    Check(LineCount(after) >= LineCount(content), "a write lost lines");
    // A whole line: after a line feed, or at the file's start.
    Check(("\n" + after).find("\n    " + key + " " + value + "\n") != std::string::npos,
          "a successful write does not hold the new parameter line");
    return 0;
}
