#include "ip/SourcedStanza.hpp"

#include "ip/InterfacesText.hpp"

#include <fmt/format.h>

#include <dirent.h>
#include <glob.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>

namespace Zel::Tools::Nimhost {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// {0} the interface, {1} the file holding its stanza, {2} the main file.
constexpr std::string_view configuredElsewhere = "{0} is configured in {1}, which the controller's IP configuration "
                                                 "does not read; move its stanza into {2}";
constexpr std::string_view alsoConfiguredElsewhere = "{0} has a second stanza in {1} (line {3}), which the "
                                                     "controller's IP configuration does not read, but ifupdown "
                                                     "applies; move what it sets into {0}'s stanza in {2} and delete "
                                                     "it there";

// Includes within includes; ifupdown itself stops a loop only by running out
// of descriptors.
constexpr int deepestInclude = 8;

std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string Resolved(const std::string& base, const std::string& path)
{
    return !path.empty() && path[0] == '/' ? path : DirectoryOf(base) + "/" + path;
}

class Search {
public:
    Search(const std::string& interfaceName, const FileTree& tree) : interfaceName(interfaceName), tree(tree) {}

    std::optional<SourcedStanza> Includes(const std::string& file, const InterfacesText& text, int depth)
    {
        for (const auto& stanza : text.Stanzas()) {
            const bool directory = stanza.keyword == "source-directory" || stanza.keyword == "source-dir";
            if ((!directory && stanza.keyword != "source") || stanza.words.empty() || depth >= deepestInclude) {
                continue;
            }
            for (const auto& match : tree.Glob(Resolved(file, stanza.Word(0)))) {
                std::vector<std::string> files{match};
                if (directory) {
                    files.clear();
                    for (const auto& name : tree.List(match)) {
                        if (IsSourcedName(name)) {
                            files.push_back(match + "/" + name);
                        }
                    }
                }
                for (const auto& path : files) {
                    if (auto found = File(path, depth + 1)) {
                        return found;
                    }
                }
            }
        }
        return std::nullopt;
    }

private:
    std::optional<SourcedStanza> File(const std::string& path, int depth)
    {
        if (!visited.insert(path).second) {
            return std::nullopt;
        }
        const auto content = tree.Read(path);
        if (!content) {
            return std::nullopt;
        }
        const InterfacesText text(*content);
        if (const Stanza* stanza = text.FindInet(interfaceName)) {
            return SourcedStanza{path, stanza->line, false};
        }
        return Includes(path, text, depth);
    }

    const std::string& interfaceName;
    const FileTree& tree;
    std::set<std::string> visited;
};

} // namespace

std::vector<std::string> RealFileTree::Glob(const std::string& pattern) const
{
    glob_t matches{};
    std::vector<std::string> paths;
    if (::glob(pattern.c_str(), 0, nullptr, &matches) == 0) {
        paths.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    }
    ::globfree(&matches);
    return paths;
}

std::vector<std::string> RealFileTree::List(const std::string& directory) const
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseDirectory> dir(::opendir(directory.c_str()));
    if (!dir) {
        return names;
    }
    while (const dirent* entry = ::readdir(dir.get())) {
        names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> RealFileTree::Read(const std::string& path) const
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::optional<SourcedStanza> FindSourcedStanza(const std::string& mainFile, const std::string& mainText,
                                               const std::string& interfaceName, const FileTree& tree)
{
    const InterfacesText text(mainText);
    Search search(interfaceName, tree);
    auto found = search.Includes(mainFile, text, 0);
    if (found) {
        found->alsoInMain = text.FindInet(interfaceName) != nullptr;
    }
    return found;
}

std::string DescribeSourcedStanza(const std::string& interfaceName, const SourcedStanza& where,
                                  const std::string& mainFile)
{
    return fmt::format(where.alsoInMain ? alsoConfiguredElsewhere : configuredElsewhere, interfaceName, where.file,
                       mainFile, where.line + 1);
}

bool IsSourcedName(const std::string& name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

} // namespace Zel::Tools::Nimhost
