#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <Zel/System/Commons/Io/File.hpp>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::Io::File;

namespace {

constexpr std::string_view blockKeyword = "iface";
// With its trailing blank: "inet6" lines carry no method word for us.
constexpr std::string_view methodMarker = "inet ";
constexpr std::string_view methodKey = "inet";
constexpr std::string_view staticMethod = "static";
constexpr std::string_view dnsKey = "dns-nameservers";
constexpr std::string_view indentation = "    ";
constexpr std::string_view separator = " ";
constexpr char commentMark = '#';
constexpr std::string_view openError = "Error open file {0}";
// Only the blank separates words here; tabs and a carriage return are part
// of the text they stand in.
constexpr char blank = ' ';
// Parameters can be placed only in the four lines after a block's header.
constexpr std::uint8_t lastLineInRange = 4;

bool Contains(const std::string& line, std::string_view text)
{
    return line.find(text.data(), 0, text.size()) != std::string::npos;
}

// A line break would end the parameter line early and let the rest of the
// value stand as a line of its own (ifupdown runs "up" lines as root); a NUL
// byte cuts the line for every C reader of the file.
bool HasLineBreakOrNul(const std::string& value)
{
    return value.find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos;
}

} // namespace

IpConfigFileAccess::IpConfigFileAccess(std::vector<BasicString> parameterOrder, BasicString fileName)
    : parameterOrder(std::move(parameterOrder)), fileName(std::move(fileName)), tempFileName(this->fileName + ".tmp")
{
}

int IpConfigFileAccess::ReadIpPara(const BasicString& interfaceName, const BasicString& key, BasicString& value) const
{
    std::ifstream input(fileName);
    if (!input.is_open()) {
        log(3, openError, fileName);
        return 1;
    }

    int result = 1;
    bool inBlock = false;
    BasicString line;
    while (std::getline(input, line)) {
        if (Contains(line, blockKeyword)) {
            inBlock = ReadCheckVaildInterfaceBlock(interfaceName, line);
        }
        if (!inBlock) {
            continue;
        }
        result = ReadValueFromBlock(line, key, value);
        if (result == 0) {
            break;
        }
    }
    input.close();

    log(8, "IpConfigFileAccess::ReadIpPara(): Read {0} from {1}", value, key);
    return result;
}

int IpConfigFileAccess::WriteIpPara(const BasicString& interfaceName, const BasicString& key,
                                    const BasicString& value) const
{
    if (HasLineBreakOrNul(value)) {
        log(3, "IpConfigFileAccess::WriteIpPara(): Refused value for {0}: it contains a line feed, carriage return "
               "or NUL character",
            key);
        return 1;
    }

    std::ifstream input(fileName);
    std::ofstream output(tempFileName, std::ios::out | std::ios::trunc);

    BasicString newParameterLine;
    newParameterLine.append(indentation).append(key).append(separator).append(value);

    // Never reset within one write: a second block of the same interface
    // continues counting where the first stopped, and it wraps after 255.
    std::uint8_t lineCounter = 0;
    bool inBlock = false;
    bool modified = false;

    log(8, "IpConfigFileAccess::WriteIpPara(): Write {0} to {1}", value, key);

    if (!input.is_open()) {
        // The temporary file, if it was created, stays: there is nothing on
        // this path that could have put content into it.
        log(3, openError, fileName);
        return 1;
    }
    if (!output.is_open()) {
        log(3, openError, tempFileName);
        input.close();
        return 1;
    }

    int result = 0;
    BasicString line;
    while (std::getline(input, line)) {
        // Only a mark in the first column makes a comment; such lines are
        // copied as they are and do not count towards the range.
        const bool comment = !line.empty() && line[0] == commentMark;
        if (!comment) {
            if (Contains(line, blockKeyword)) {
                WriteCheckVaildInterfaceBlock(interfaceName, line, key, value, inBlock, modified);
            }
            if (inBlock) {
                CheckAndWriteLine(line, lineCounter, key, newParameterLine, modified, inBlock);
            }
        }
        // Every line ends with a line feed, the last one too.
        output << line << '\n';
    }
    output.close();
    input.close();

    if (!output) {
        // A short temporary file (disk full) must never replace the real one.
        log(3, "Error write file {0}", tempFileName);
        result = 1;
    } else if (modified) {
        // Replaces the file crash-safely: readers see the old or the new
        // content, never a part of it.
        File::Copy(tempFileName, fileName, true, true);
    } else {
        result = 1;
    }
    File::Delete(tempFileName);
    return result;
}

bool IpConfigFileAccess::ReadCheckVaildInterfaceBlock(const BasicString& interfaceName, const BasicString& line) const
{
    // A substring test: eth1 also opens the block of eth10.
    return line.find(interfaceName) != std::string::npos;
}

int IpConfigFileAccess::ReadValueFromBlock(const BasicString& line, const BasicString& key, BasicString& value) const
{
    const std::size_t found = line.find(key);
    if (found == std::string::npos) {
        return 1;
    }
    std::size_t pos = found + key.size();
    // Bounds-checked on purpose: a key with nothing but blanks behind it
    // raises std::out_of_range, which the callers pass on.
    while (line.at(pos) == blank) {
        ++pos;
    }
    if (key == dnsKey) {
        // All servers with their separating blanks, up to the line's end.
        value = line.substr(pos);
        return 0;
    }
    const std::size_t end = line.find(blank, pos);
    value = line.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
    return 0;
}

void IpConfigFileAccess::SetAddressAssignmentMethod(BasicString& line, const BasicString& method) const
{
    const std::size_t found = line.find(methodMarker.data(), 0, methodMarker.size());
    if (found == std::string::npos) {
        return;
    }
    const std::size_t start = found + methodMarker.size();
    if (start >= line.size()) {
        return;
    }
    std::size_t wordEnd = line.find(blank, start);
    if (wordEnd == std::string::npos) {
        wordEnd = line.size();
    }
    // The present word is compared without its last two characters, so
    // "static" is compared as "stat" and the word is nearly always rewritten.
    // A word shorter than two characters makes the count wrap, which substr
    // clamps to the rest of the line.
    const std::size_t currentLength = wordEnd - start - 2;
    if (line.compare(start, currentLength, method) == 0) {
        return;
    }
    // The count is measured from the line's start, not from the word, so
    // everything behind the word goes too on an ordinary "iface" line.
    const std::size_t count = std::min(line.size() - start, wordEnd - 1);
    line.replace(start, count, method);
}

void IpConfigFileAccess::WriteCheckVaildInterfaceBlock(const BasicString& interfaceName, BasicString& line,
                                                       const BasicString& key, const BasicString& value, bool& inBlock,
                                                       bool& modified) const
{
    if (line.find(interfaceName) == std::string::npos) {
        inBlock = false;
        return;
    }
    if (key != methodKey) {
        // An address, netmask, gateway or name server list makes the
        // interface static. The header change reaches the file only when the
        // parameter itself is placed.
        inBlock = true;
        SetAddressAssignmentMethod(line, BasicString(staticMethod));
        return;
    }
    // The method lives in the header alone; the file is rewritten whenever a
    // matching header exists, even when the word was already in place.
    SetAddressAssignmentMethod(line, value);
    modified = true;
}

bool IpConfigFileAccess::FindAndAssignParameter(BasicString& line, const BasicString& key,
                                                const BasicString& newParameterLine) const
{
    const auto keyPosition = std::find(parameterOrder.begin(), parameterOrder.end(), key);
    if (keyPosition == parameterOrder.end() || keyPosition + 1 == parameterOrder.end()) {
        return false;
    }
    const auto firstLater = static_cast<std::size_t>(keyPosition - parameterOrder.begin()) + 1;
    bool inserted = false;
    // Walks on after an insertion, so a line holding two later keys receives
    // the new line twice; kept, because files already written by controllers
    // in the field were edited exactly so.
    for (std::size_t index = parameterOrder.size(); index-- > firstLater;) {
        if (line.find(parameterOrder[index]) != std::string::npos) {
            line.insert(0, newParameterLine + "\n");
            inserted = true;
        }
    }
    return inserted;
}

bool IpConfigFileAccess::AssignParameter(BasicString& line, const BasicString& key,
                                         const BasicString& newParameterLine) const
{
    if (line.find(key) != std::string::npos) {
        // The whole line goes, with its indentation and any trailing comment.
        line = newParameterLine;
        return true;
    }
    const bool inserted = FindAndAssignParameter(line, key, newParameterLine);
    if (!line.empty()) {
        return inserted;
    }
    // The empty line that ends a block keeps ending it, behind the new line.
    line = newParameterLine + "\n";
    return true;
}

void IpConfigFileAccess::CheckAndWriteLine(BasicString& line, std::uint8_t& lineCounter, const BasicString& key,
                                           const BasicString& newParameterLine, bool& modified, bool& inBlock) const
{
    // The header (counter 0) and everything after the fourth line are out of
    // range.
    if (lineCounter == 0 || lineCounter > lastLineInRange) {
        ++lineCounter;
        return;
    }
    if (AssignParameter(line, key, newParameterLine)) {
        modified = true;
        inBlock = false;
    }
    ++lineCounter;
}

} // namespace Zel::Hardware::Modules::Commons::Linux
