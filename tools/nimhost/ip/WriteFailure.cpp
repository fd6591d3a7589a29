#include "ip/WriteFailure.hpp"

#include "ip/SourcedStanza.hpp"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace Zel::Tools::Nimhost {

namespace {

const std::string openFailed = "Error open file ";

bool Contains(std::string text, const std::string& word)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text.find(word) != std::string::npos;
}

// The errno text of writing `path` (or creating it in its directory); empty
// when nothing stands in the way.
std::string WriteProblem(const std::string& path)
{
    std::error_code ignored;
    const bool exists = std::filesystem::exists(path, ignored);
    const std::string target = exists ? path : std::filesystem::path(path).parent_path().string();
    if (std::filesystem::is_directory(path, ignored)) {
        return std::strerror(EISDIR);
    }
    if (::access(target.c_str(), exists ? W_OK : W_OK | X_OK) != 0) {
        const int error = errno;
        return std::strerror(error);
    }
    return {};
}

// Whether an "iface" line names the interface, found as the module finds it
// (substring search on the whole line).
bool HasBlock(const std::string& interfaceName)
{
    std::ifstream file(interfacesFile);
    std::string line;
    while (std::getline(file, line)) {
        if (line.find("iface") != std::string::npos && line.find(interfaceName) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The library's message without its "Class::Operation(): " origin, which
// names code, not the problem.
std::string WithoutOrigin(const std::string& text)
{
    const std::size_t origin = text.find("(): ");
    return origin != std::string::npos && text.rfind("::", origin) != std::string::npos ? text.substr(origin + 4)
                                                                                        : text;
}

} // namespace

std::string ExplainFailedWrite(const std::string& interfaceName, const std::string& key,
                               const std::vector<std::string>& libraryErrors)
{
    // A lock that another process holds, as opposed to a lock file that
    // cannot be made (that is a "cannot write" below).
    const std::string busy = std::strerror(EWOULDBLOCK);
    for (const auto& text : libraryErrors) {
        if (Contains(text, "lock") &&
            (Contains(text, "another") || Contains(text, "held") || Contains(text, "holds") || Contains(text, "busy") ||
             text.find(busy) != std::string::npos)) {
            return fmt::format("another writer holds {} ({}); try again when it is done", interfacesFile,
                               WithoutOrigin(text));
        }
    }
    for (const auto& text : libraryErrors) {
        if (text.rfind(openFailed, 0) == 0) {
            const std::string path = text.substr(openFailed.size());
            std::error_code ignored;
            if (path == interfacesFile && !std::filesystem::exists(path, ignored)) {
                break;
            }
            const std::string problem = WriteProblem(path);
            return fmt::format("cannot write {}: {}", path, problem.empty() ? "it could not be opened" : problem);
        }
        // The library names the path and the errno text itself.
        return fmt::format("writing {} failed: {}", interfacesFile, WithoutOrigin(text));
    }

    std::error_code ignored;
    if (!std::filesystem::exists(interfacesFile, ignored)) {
        return fmt::format("{} not found: nothing configured; create it with an 'iface {} inet static' block",
                           interfacesFile, interfaceName);
    }
    for (const std::string& path : {interfacesFile, interfacesFile + ".tmp"}) {
        if (const std::string problem = WriteProblem(path); !problem.empty()) {
            return fmt::format("cannot write {}: {}", path, problem);
        }
    }
    if (!HasBlock(interfaceName)) {
        // Never a second stanza where the first one only lies in a file the
        // controller does not read.
        const auto text = RealFileTree().Read(interfacesFile);
        if (const auto sourced = FindSourcedStanza(interfacesFile, text.value_or(""), interfaceName, RealFileTree())) {
            return DescribeSourcedStanza(interfaceName, *sourced, interfacesFile);
        }
        return fmt::format("{} has no 'iface {} inet' block; add one (for example 'iface {} inet static') first",
                           interfacesFile, interfaceName, interfaceName);
    }
    return fmt::format("no room for '{0}' in the block of {1}: a value goes only into the first four lines after "
                       "'iface {1} inet' (replacing its line, before a later setting, or on an empty line); add an "
                       "empty line or a '{0}' line there",
                       key, interfaceName);
}

} // namespace Zel::Tools::Nimhost
