#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// ifupdown reads the files an interfaces file includes ("source PATTERN",
// "source-directory DIRECTORY"); the controller's IP configuration reads only
// /etc/network/interfaces. Following the includes (read only, for diagnosis)
// tells nimhost when an interface is configured where the controller does not
// look, as Debian's own layout does (interfaces.d/eth0).

// The files the includes reach; an interface behind the real file system
// (RealFileTree) or, for fuzzing and tests, one in memory.
class FileTree {
public:
    virtual ~FileTree() = default;
    // The paths a shell wildcard pattern matches, sorted; none when nothing
    // matches.
    virtual std::vector<std::string> Glob(const std::string& pattern) const = 0;
    // The names of a directory's entries, sorted; none when it cannot be read.
    virtual std::vector<std::string> List(const std::string& directory) const = 0;
    // A regular file's content; empty when it cannot be read.
    virtual std::optional<std::string> Read(const std::string& path) const = 0;
};

class RealFileTree : public FileTree {
public:
    std::vector<std::string> Glob(const std::string& pattern) const override;
    std::vector<std::string> List(const std::string& directory) const override;
    std::optional<std::string> Read(const std::string& path) const override;
};

struct SourcedStanza {
    std::string file;
    std::size_t line = 0;
    // The main file has a stanza of its own for the interface too.
    bool alsoInMain = false;
};

// The first "iface NAME inet" stanza in a file that `mainFile` (with the text
// `mainText`) includes, directly or through other included files; empty when
// none does. Includes are followed as ifupdown follows them: a relative path
// from the including file's directory, wildcards expanded, a directory's
// files taken when their names are letters, digits, '_' and '-' only.
std::optional<SourcedStanza> FindSourcedStanza(const std::string& mainFile, const std::string& mainText,
                                               const std::string& interfaceName, const FileTree& tree);

// The sentence nimhost says about it: where the stanza is, and to move it
// into the main file (never to add a second one).
std::string DescribeSourcedStanza(const std::string& interfaceName, const SourcedStanza& where,
                                  const std::string& mainFile);

// Whether a file in a source-directory is read: "^[a-zA-Z0-9_-]+$".
bool IsSourcedName(const std::string& name);

} // namespace Zel::Tools::Nimhost
