#include "ip/InterfacesText.hpp"

#include <algorithm>
#include <array>

namespace Zel::Tools::Nimhost {

namespace {

// The words that start a stanza; every other first word is an option of the
// stanza above it.
constexpr std::array<std::string_view, 9> stanzaKeywords{"iface",  "mapping",      "auto",
                                                         "source", "source-dir",   "source-directory",
                                                         "rename", "no-auto-down", "no-scripts"};

bool IsStanzaKeyword(std::string_view word)
{
    return word.rfind("allow-", 0) == 0 ||
        std::find(stanzaKeywords.begin(), stanzaKeywords.end(), word) != stanzaKeywords.end();
}

std::vector<std::string> Words(std::string_view text)
{
    std::vector<std::string> words;
    std::size_t pos = 0;
    while (pos < text.size()) {
        while (pos < text.size() && IsFileSpace(text[pos])) {
            ++pos;
        }
        const std::size_t start = pos;
        while (pos < text.size() && !IsFileSpace(text[pos])) {
            ++pos;
        }
        if (pos > start) {
            words.emplace_back(text.substr(start, pos - start));
        }
    }
    return words;
}

} // namespace

std::vector<std::string> SplitLines(std::string_view text)
{
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

bool IsFileSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

std::string Trimmed(std::string_view text)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && IsFileSpace(text[begin])) {
        ++begin;
    }
    while (end > begin && IsFileSpace(text[end - 1])) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

InterfacesText::InterfacesText(std::string_view bytes) : lines(SplitLines(bytes))
{
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::size_t first = index;
        const std::string trimmed = Trimmed(lines[index]);
        if (trimmed.empty() || trimmed[0] == '#') {
            continue;
        }
        // A backslash at the end joins the next line to this one.
        std::string logical = lines[index];
        while (!logical.empty() && logical.back() == '\\' && index + 1 < lines.size()) {
            logical.pop_back();
            logical += lines[++index];
        }
        std::vector<std::string> words = Words(logical);
        if (words.empty()) {
            continue;
        }
        if (IsStanzaKeyword(words[0])) {
            if (!stanzas.empty()) {
                stanzas.back().end = first;
            }
            Stanza stanza;
            stanza.keyword = words[0];
            stanza.words.assign(words.begin() + 1, words.end());
            stanza.line = first;
            stanzas.push_back(std::move(stanza));
        } else if (!stanzas.empty()) {
            const std::string rest = Trimmed(logical);
            const auto keyEnd = std::find_if(rest.begin(), rest.end(), IsFileSpace);
            stanzas.back().options.push_back({words[0], Trimmed(std::string(keyEnd, rest.end())), first, index});
        }
    }
    if (!stanzas.empty()) {
        stanzas.back().end = lines.size();
    }
}

const Stanza* InterfacesText::FindInet(std::string_view name) const
{
    for (const auto& stanza : stanzas) {
        if (stanza.IsIface() && stanza.Name() == name && stanza.Family() == "inet") {
            return &stanza;
        }
    }
    return nullptr;
}

const Stanza* InterfacesText::StanzaAt(std::size_t line) const
{
    const auto after = std::upper_bound(stanzas.begin(), stanzas.end(), line,
                                        [](std::size_t value, const Stanza& stanza) { return value < stanza.line; });
    if (after == stanzas.begin()) {
        return nullptr;
    }
    const Stanza& stanza = *(after - 1);
    return line < stanza.end ? &stanza : nullptr;
}

const Option* InterfacesText::OptionAt(std::size_t line) const
{
    const Stanza* stanza = StanzaAt(line);
    if (stanza == nullptr) {
        return nullptr;
    }
    for (const auto& option : stanza->options) {
        if (option.line <= line && line <= option.lastLine) {
            return &option;
        }
    }
    return nullptr;
}

bool InterfacesText::IsComment(std::size_t line) const
{
    if (line >= lines.size()) {
        return false;
    }
    const std::string trimmed = Trimmed(lines[line]);
    return !trimmed.empty() && trimmed[0] == '#';
}

} // namespace Zel::Tools::Nimhost
