#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include "Modules/Commons/Linux/ErrorString.hpp"
#include "Modules/Commons/Linux/ScopedDescriptor.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::Logging::Error;
using Zel::System::Commons::Logging::Trace;
using Zel::System::Commons::Logging::Warning;

namespace {

constexpr std::string_view blockKeyword = "iface";
// With its trailing blank: "inet6" lines carry no method word for us.
constexpr std::string_view methodMarker = "inet ";
constexpr std::string_view methodKey = "inet";
constexpr std::string_view staticMethod = "static";
constexpr std::string_view dnsKey = "dns-nameservers";
constexpr std::string_view indentation = "    ";
constexpr std::string_view separator = " ";
constexpr std::string_view temporarySuffix = ".tmp";
constexpr char commentMark = '#';
// Only the blank separates words here; tabs and a carriage return are part
// of the text they stand in.
constexpr char blank = ' ';
// Parameters can be placed only in the four lines after a block's header.
constexpr std::uint8_t lastLineInRange = 4;

constexpr std::string_view openError = "Error open file {0}";
constexpr std::string_view writeError = "Error write file {0}";
constexpr std::string_view refusedLineBreak = "IpConfigFileAccess::WriteIpPara(): Refused value for {0}: it contains a "
                                              "line feed, carriage return or NUL character";
constexpr std::string_view refusedBlank = "IpConfigFileAccess::WriteIpPara(): Refused value for {0}: it is empty or "
                                          "blank";
constexpr std::string_view lockError = "IpConfigFileAccess::WriteIpPara(): Cannot lock {0}: {1}";
constexpr std::string_view lockTimedOut = "IpConfigFileAccess::WriteIpPara(): Lock on {0} still held by another "
                                          "writer after {1} ms";
constexpr std::string_view replaceError = "IpConfigFileAccess::WriteIpPara(): Cannot replace {0}: {1}";
constexpr std::string_view rewrittenInPlace = "IpConfigFileAccess::WriteIpPara(): {0} rewritten in place, not "
                                              "atomically: {1}";

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

// Written, such a value leaves the key at the end of its line, where every
// later read of it fails.
bool IsBlank(const std::string& value)
{
    return value.find_first_not_of(" \t") == std::string::npos;
}

// The file a chain of links ends in; the name itself when it is no link or
// names nothing (opening it then fails and says so).
BasicString FinalTarget(const BasicString& name)
{
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(name.c_str(), nullptr), &std::free);
    return resolved ? BasicString(resolved.get()) : name;
}

BasicString DirectoryOf(const BasicString& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return BasicString(".");
    }
    return slash == 0 ? BasicString("/") : path.substr(0, slash);
}

// 0, or the errno of the failure (EWOULDBLOCK when the time ran out). Another
// writer holds the lock for the few hundred microseconds of one write: polled
// so that the wait has a bound, in pauses short against that.
int LockWithin(int directory, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::chrono::microseconds pause(50);
    while (::flock(directory, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const auto now = std::chrono::steady_clock::now();
        if (error != EWOULDBLOCK && error != EINTR) {
            return error;
        }
        if (now >= deadline) {
            return EWOULDBLOCK;
        }
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
        pause = std::min(pause * 2, std::chrono::microseconds(5000));
    }
    return 0;
}

// Writes all of content at offset; false with errno set when it could not
// (ENOSPC for a write that stopped short).
bool WriteAll(int fd, const std::string& content, off_t offset = 0)
{
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written =
            ::pwrite(fd, content.data() + done, content.size() - done, offset + static_cast<off_t>(done));
        if (written == 0) {
            errno = ENOSPC;
            return false;
        }
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += written < 0 ? 0 : static_cast<std::size_t>(written);
    }
    return true;
}

// Rewrites the file where it stands; 0 or the errno of the failure. The
// temporary file proved there is room in its own file system only, so the
// file is first extended with line feeds to the new length: where its file
// system cannot hold that (full, quota, size limit), the extension is cut
// off again and the old content stands untouched. Then one write puts the
// new content over the old, padded with line feeds to the old length, and
// the file is cut to the new length. A kill before or after that write
// leaves the old or the new content followed by empty lines, which mean
// nothing to ifupdown or to us; only a kill during it, or a power cut
// before the final flush, can leave a mixture.
int RewriteInPlace(const BasicString& target, const std::string& content)
{
    ScopedDescriptor file(::open(target.c_str(), O_WRONLY | O_CLOEXEC));
    struct stat info {};
    if (file.Get() < 0 || ::fstat(file.Get(), &info) != 0) {
        return errno;
    }
    const auto oldSize = static_cast<std::size_t>(info.st_size);
    if (content.size() > oldSize &&
        !WriteAll(file.Get(), std::string(content.size() - oldSize, '\n'), static_cast<off_t>(oldSize))) {
        const int error = errno;
        // Should even this fail, the old content is followed by empty lines.
        [[maybe_unused]] const int cutOff = ::ftruncate(file.Get(), info.st_size);
        return error;
    }
    std::string padded = content;
    padded.resize(std::max(oldSize, content.size()), '\n');
    if (!WriteAll(file.Get(), padded) || ::ftruncate(file.Get(), static_cast<off_t>(content.size())) != 0 ||
        ::fsync(file.Get()) != 0 || !file.Close()) {
        return errno;
    }
    return 0;
}

// How the new content was put in place: error 0 when it was; renameError
// not 0 when the file could not be renamed over and was rewritten where it
// stands instead.
struct Replacement {
    int error = 0;
    int renameError = 0;
};

Replacement PutInPlace(ScopedDescriptor& temporaryFd, const BasicString& temporary, const BasicString& target,
                       const std::string& content, int directory)
{
    struct stat info {};
    const int temp = temporaryFd.Get();
    // Changing the owner needs privileges; without them the writer becomes
    // the owner, as of any file it creates.
    if (::stat(target.c_str(), &info) != 0 || ::fchmod(temp, info.st_mode & 07777) != 0 ||
        (::fchown(temp, info.st_uid, info.st_gid) != 0 && errno != EPERM) || ::fsync(temp) != 0 ||
        !temporaryFd.Close()) {
        const int error = errno;
        return {error, 0};
    }
    if (::rename(temporary.c_str(), target.c_str()) == 0) {
        // The new name reaches the disk with the directory.
        ::fsync(directory);
        return {};
    }
    const int renameError = errno;
    if (renameError != EBUSY && renameError != EXDEV) {
        return {renameError, 0};
    }
    // A bind-mounted file (EBUSY) or one on another mount (EXDEV) can only be
    // rewritten where it stands.
    return {RewriteInPlace(target, content), renameError};
}

} // namespace

IpConfigFileAccess::IpConfigFileAccess(std::vector<BasicString> parameterOrder, BasicString fileName,
                                       std::chrono::milliseconds lockTimeout)
    : parameterOrder(std::move(parameterOrder)), fileName(std::move(fileName)), lockTimeout(lockTimeout)
{
}

int IpConfigFileAccess::ReadIpPara(const BasicString& interfaceName, const BasicString& key, BasicString& value) const
{
    // No lock: writers replace the file as a whole (a bind-mounted one, which
    // they rewrite in place, aside).
    std::ifstream input(fileName);
    if (!input.is_open()) {
        log(Error, openError, fileName);
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

    log(Trace, "IpConfigFileAccess::ReadIpPara(): Read {0} from {1}", value, key);
    return result;
}

int IpConfigFileAccess::WriteIpPara(const BasicString& interfaceName, const BasicString& key,
                                    const BasicString& value) const
{
    if (HasLineBreakOrNul(value)) {
        log(Error, refusedLineBreak, key);
        return 1;
    }
    if (IsBlank(value)) {
        log(Error, refusedBlank, key);
        return 1;
    }

    BasicString newParameterLine;
    newParameterLine.append(indentation).append(key).append(separator).append(value);

    // Never reset within one write: a second block of the same interface
    // continues counting where the first stopped, and it wraps after 255.
    std::uint8_t lineCounter = 0;
    bool inBlock = false;
    bool modified = false;

    log(Trace, "IpConfigFileAccess::WriteIpPara(): Write {0} to {1}", value, key);

    // Beside the file a link names, so the link stays and the rename stays on
    // one file system.
    const BasicString target = FinalTarget(fileName);
    const BasicString temporary = target + BasicString(temporarySuffix);
    const BasicString directory = DirectoryOf(target);
    // From truncating the temporary file until the new content is in place.
    ScopedDescriptor lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int lockResult = lock.Get() < 0 ? errno : LockWithin(lock.Get(), lockTimeout);
    if (lockResult == ENOENT || lockResult == ENOTDIR) {
        // No directory, no file: the file cannot be opened, and that is what
        // the controller's log has always said for it.
        log(Error, openError, fileName);
        return 1;
    }
    if (lockResult == EWOULDBLOCK) {
        log(Error, lockTimedOut, directory, lockTimeout.count());
        return 1;
    }
    if (lockResult != 0) {
        log(Error, lockError, directory, ErrorString().GetString(lockResult));
        return 1;
    }

    std::ifstream input(target);
    ScopedDescriptor output(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!input.is_open()) {
        // The temporary file, if it was created, stays: there is nothing on
        // this path that could have put content into it.
        log(Error, openError, fileName);
        return 1;
    }
    if (output.Get() < 0) {
        log(Error, openError, temporary);
        return 1;
    }

    std::string content;
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
        content.append(line).push_back('\n');
    }
    input.close();

    if (!WriteAll(output.Get(), content)) {
        // A short temporary file (disk full) must never replace the real one.
        log(Error, writeError, temporary);
        ::unlink(temporary.c_str());
        return 1;
    }
    if (!modified) {
        ::unlink(temporary.c_str());
        return 1;
    }
    const Replacement replacement = PutInPlace(output, temporary, target, content, lock.Get());
    if (replacement.error != 0 || replacement.renameError != 0) {
        ::unlink(temporary.c_str());
    }
    if (replacement.error != 0) {
        log(Error, replaceError, target, ErrorString().GetString(replacement.error));
        return 1;
    }
    if (replacement.renameError != 0) {
        log(Warning, rewrittenInPlace, target, ErrorString().GetString(replacement.renameError));
    }
    return 0;
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
