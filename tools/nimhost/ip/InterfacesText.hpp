#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Tools::Nimhost {

// An interfaces file read the way ifupdown reads it, for diagnosis only:
// which stanza a line belongs to, which option it holds, where the files it
// sources are. The IP configuration module reads the same file by substring
// search instead; nimhost uses this reading to say where the module's reading
// or writing lands. Built from bytes alone (no I/O), so it can be fuzzed.
//
// Line indexes count from 0 over the file's physical lines, split as the
// module splits them (see SplitLines); messages say index + 1.

// The file's lines as the module reads them: split at line feeds, a last
// line without one still counted, nothing else removed (a carriage return
// stays part of its line).
std::vector<std::string> SplitLines(std::string_view text);

// ifupdown's white space: blanks, tabs and a carriage return separate words.
bool IsFileSpace(char c);

// The text without white space at either end.
std::string Trimmed(std::string_view text);

struct Option {
    std::string key;
    // The rest of the logical line, white space removed at both ends; empty
    // when the key stands alone (ifupdown refuses such a file).
    std::string value;
    std::size_t line = 0;
    // Its last physical line: a line ending in a backslash continues.
    std::size_t lastLine = 0;
};

struct Stanza {
    // "iface", "mapping", "auto", "allow-hotplug", "source", ...
    std::string keyword;
    // The header's words after the keyword: for iface the name, the family,
    // the method and whatever follows.
    std::vector<std::string> words;
    std::size_t line = 0;
    // One past its last line: the stanza owns every line up to the next
    // stanza's header, blank and comment lines included.
    std::size_t end = 0;
    std::vector<Option> options;

    bool IsIface() const { return keyword == "iface"; }
    // The iface header's words; empty when the header lacks them.
    std::string Name() const { return Word(0); }
    std::string Family() const { return Word(1); }
    std::string Method() const { return Word(2); }
    std::string Word(std::size_t index) const { return index < words.size() ? words[index] : std::string(); }
};

class InterfacesText {
public:
    explicit InterfacesText(std::string_view bytes);

    const std::vector<std::string>& Lines() const { return lines; }
    const std::vector<Stanza>& Stanzas() const { return stanzas; }

    // The first "iface NAME inet ..." stanza, the one ifupdown configures the
    // interface's IPv4 settings from; null when there is none.
    const Stanza* FindInet(std::string_view name) const;

    // The stanza whose lines include `line`; null before the first stanza.
    const Stanza* StanzaAt(std::size_t line) const;

    // The option whose logical line covers `line`; null for a header, a
    // comment, a blank line or a line before the first stanza.
    const Option* OptionAt(std::size_t line) const;

    // A "#" as the line's first character other than white space.
    bool IsComment(std::size_t line) const;

private:
    std::vector<std::string> lines;
    std::vector<Stanza> stanzas;
};

} // namespace Zel::Tools::Nimhost
