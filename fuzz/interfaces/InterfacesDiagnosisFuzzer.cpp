// nimhost's reading of interfaces files (stanzas, sourced files, where a
// value comes from, whether a write stayed in its stanza) on arbitrary
// files, each checked against the plug-in's own file access on the same
// bytes:
//   - nothing throws, and the stanzas cover the lines in order;
//   - the line nimhost says the module reads a key from is the line the
//     module reads: a read that answers 0 gives a piece of that line, one
//     that answers 1 means there is none, one that throws means the key ends
//     that line;
//   - the line difference of a write turns the old file into the new one;
//   - a write the check allows leaves every line outside the interface's
//     stanza as it was;
//   - a stanza found through "source" or "source-directory" is in the file
//     named.
//
// Input: byte 0 selects the key (bits 0-2: address, netmask, gateway,
// dns-nameservers, inet), the interface (bits 3-5: eth0, eth1, eth10,
// eth0.100, lo, or one from the input); then a length byte and the value,
// a length byte and the interface when chosen; the rest is the main file and
// up to two included files, separated by NUL bytes.
#include "fuzz/support/FuzzSupport.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"
#include "ip/EditCheck.hpp"
#include "ip/InterfacesText.hpp"
#include "ip/LineDiff.hpp"
#include "ip/SourcedStanza.hpp"
#include "ip/ValueOrigin.hpp"

#include <fnmatch.h>

#include <map>
#include <stdexcept>

namespace {

using Zel::Fuzz::Check;
using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using namespace Zel::Tools::Nimhost;

std::string file;
std::unique_ptr<IpConfigFileAccess> fileAccess;

const char* const keys[] = {"address", "netmask", "gateway", "dns-nameservers", "inet", "inet", "address", "gateway"};
const char* const interfaces[] = {"eth0", "eth1", "eth10", "eth0.100", "lo", "eth0", "eth1"};

// The main file and its includes, in memory.
class MemoryTree : public FileTree {
public:
    std::map<std::string, std::string> files;

    std::vector<std::string> Glob(const std::string& pattern) const override
    {
        std::vector<std::string> paths;
        for (const auto& [path, content] : files) {
            if (::fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME) == 0) {
                paths.push_back(path);
            }
        }
        if (pattern == "/etc/network/interfaces.d") {
            paths.push_back(pattern);
        }
        return paths;
    }
    std::vector<std::string> List(const std::string& directory) const override
    {
        std::vector<std::string> names;
        for (const auto& [path, content] : files) {
            if (path.rfind(directory + "/", 0) == 0) {
                names.push_back(path.substr(directory.size() + 1));
            }
        }
        return names;
    }
    std::optional<std::string> Read(const std::string& path) const override
    {
        const auto found = files.find(path);
        return found == files.end() ? std::nullopt : std::optional<std::string>(found->second);
    }
};

void CheckStanzas(const InterfacesText& text)
{
    std::size_t previousEnd = 0;
    for (const auto& stanza : text.Stanzas()) {
        Check(stanza.line >= previousEnd && stanza.line < stanza.end && stanza.end <= text.Lines().size(),
              "stanzas out of order or beyond the file");
        Check(text.StanzaAt(stanza.line) == &stanza, "a stanza's header is not in the stanza");
        for (const auto& option : stanza.options) {
            Check(option.line > stanza.line && option.lastLine < stanza.end, "an option outside its stanza");
        }
        previousEnd = stanza.end;
    }
}

void CheckReadLine(const std::string& content, const std::string& name, const std::string& key)
{
    const auto lines = SplitLines(content);
    const auto line = ModuleReadLine(lines, name, key);
    BasicString value;
    int result = 1;
    try {
        result = fileAccess->ReadIpPara(BasicString(name), BasicString(key), value);
    } catch (const std::out_of_range&) {
        Check(line && lines[*line].find_first_not_of(' ', lines[*line].find(key) + key.size()) == std::string::npos,
              "the module's read failed on a line nimhost does not name");
        return;
    }
    Check((result == 0) == line.has_value(), "nimhost names a read line where the module reads none, or none");
    Check(result != 0 || lines[*line].find(value) != std::string::npos, "the module read from another line");
}

void CheckDiff(const std::vector<std::string>& before, const std::vector<std::string>& after)
{
    std::vector<std::string> fromBefore;
    std::vector<std::string> fromAfter;
    for (const auto& line : DiffLines(before, after)) {
        if (line.kind != DiffLine::Kind::Added) {
            fromBefore.push_back(before.at(line.oldLine));
        }
        if (line.kind != DiffLine::Kind::Removed) {
            fromAfter.push_back(after.at(line.newLine));
        }
        Check(line.kind != DiffLine::Kind::Same || before.at(line.oldLine) == after.at(line.newLine),
              "a line counted as the same differs");
    }
    Check(fromBefore == before && fromAfter == after, "the difference does not give back both files");
}

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
    const std::string key = keys[selector & 7u];
    const std::string value = input.Counted();
    const unsigned interfaceChoice = (selector >> 3u) & 7u;
    const std::string name = interfaceChoice < 7 ? std::string(interfaces[interfaceChoice]) : input.Counted();
    const std::string rest = input.Rest();
    MemoryTree tree;
    const std::size_t first = std::min(rest.find('\0'), rest.size());
    const std::size_t second = std::min(rest.find('\0', std::min(first + 1, rest.size())), rest.size());
    const std::string content = rest.substr(0, first);
    tree.files["/etc/network/interfaces"] = content;
    tree.files["/etc/network/interfaces.d/eth0"] = rest.substr(std::min(first + 1, rest.size()), second - first);
    tree.files["/etc/network/more"] = rest.substr(std::min(second + 1, rest.size()));

    const InterfacesText before(content);
    CheckStanzas(before);
    if (name.empty()) {
        return 0;
    }
    Zel::Test::WriteFile(file, content);
    CheckReadLine(content, name, key);
    FindForeignValue(before, name, key, "field");
    DescribeLineWithoutValue(before, "/etc/network/interfaces", name, key, "field", 1);
    if (const auto sourced = FindSourcedStanza("/etc/network/interfaces", content, name, tree)) {
        Check(InterfacesText(*tree.Read(sourced->file)).FindInet(name) != nullptr, "a sourced stanza is not there");
        DescribeSourcedStanza(name, *sourced, "/etc/network/interfaces");
    }

    if (fileAccess->WriteIpPara(BasicString(name), BasicString(key), BasicString(value)) != 0) {
        return 0;
    }
    const std::string after = Zel::Test::ReadFile(file);
    CheckDiff(before.Lines(), SplitLines(after));
    UnifiedDiff(content, after, "/etc/network/interfaces");
    const EditVerdict verdict = CheckEdit(content, after, {name, key, value});
    const Stanza* own = before.FindInet(name);
    if (verdict.allowed && own != nullptr) {
        const auto lines = SplitLines(after);
        const std::size_t added = lines.size() - before.Lines().size();
        for (std::size_t i = 0; i < own->line; ++i) {
            Check(lines.at(i) == before.Lines()[i], "an allowed write changed a line before the stanza");
        }
        for (std::size_t i = own->end; i < before.Lines().size(); ++i) {
            Check(lines.at(i + added) == before.Lines()[i], "an allowed write changed a line after the stanza");
        }
    }
    return 0;
}
