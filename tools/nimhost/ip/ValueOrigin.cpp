#include "ip/ValueOrigin.hpp"

#include <fmt/format.h>

namespace Zel::Tools::Nimhost {

namespace {

constexpr std::string_view blockKeyword = "iface";
constexpr std::string_view methodKey = "inet";

// {0} the interface, {1} the field, {2} the other interface, key or line,
// {3} the line's number, {4} what the interface's own stanza holds, {5} the
// key's line, {6} whether that line is to be put or added.
constexpr std::string_view fromEarlierStanza = "{0}'s {1} is read from {2}'s stanza (line {3}){4}; put {0}'s stanza "
                                               "before {2}'s";
constexpr std::string_view fromLaterStanza = "{0}'s stanza has no {5} line, so its {1} is read from {2}'s stanza "
                                             "(line {3}); ifupdown sets none for {0}";
constexpr std::string_view withoutStanza = "{0} has no stanza of its own, so its {1} is read from {2}'s stanza "
                                           "(line {3})";
constexpr std::string_view fromOtherKey = "{0}'s {1} is read from the {2} line (line {3}){4}; {6} the {5} line "
                                          "before {2}";
constexpr std::string_view fromComment = "{0}'s {1} is read from a comment (line {3}){4}; put the {5} line before "
                                         "it";
constexpr std::string_view fromOtherLine = "{0}'s {1} is read from line {3} ('{2}'), which is not a {5} line of "
                                           "{0}'s stanza";
// What the interface's own stanza holds: {0} the value, {1} the key's line.
constexpr std::string_view ownValue = ", not from its own {1} line ({0}, which ifupdown applies)";
constexpr std::string_view noOwnValue = ", as its stanza has no {1} line";

constexpr std::string_view valueMissing = "line {0} of {1} ('{2}') has '{3}' but no value after it; give it one with "
                                          "`nimhost ip set {4} {5} VALUE`, or delete the line";
constexpr std::string_view methodMissing = "line {0} of {1} ('{2}') has no method word after 'inet'; write one there "
                                           "by hand, for example 'iface {3} inet static'";
constexpr std::string_view valueMissingSomewhere = "a line of {0}'s stanza in {1} has '{2}' but no value after it";

bool Contains(const std::string& line, std::string_view text)
{
    return line.find(text) != std::string::npos;
}

// How the module's reading of this key is named in a sentence.
std::string KeyLine(const std::string& key)
{
    return key == methodKey ? "iface" : key;
}

} // namespace

std::optional<std::size_t> ModuleReadLine(const std::vector<std::string>& lines, const std::string& interfaceName,
                                          const std::string& key)
{
    bool inBlock = false;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (Contains(lines[index], blockKeyword)) {
            inBlock = Contains(lines[index], interfaceName);
        }
        if (inBlock && Contains(lines[index], key)) {
            return index;
        }
    }
    return std::nullopt;
}

std::optional<ForeignValue> FindForeignValue(const InterfacesText& file, const std::string& interfaceName,
                                             const std::string& key, const std::string& field)
{
    const auto found = ModuleReadLine(file.Lines(), interfaceName, key);
    if (!found) {
        return std::nullopt;
    }
    const std::size_t line = *found;
    const Stanza* own = file.FindInet(interfaceName);
    const Option* option = file.OptionAt(line);
    const bool inOwn = own != nullptr && line >= own->line && line < own->end;
    if (inOwn && (key == methodKey ? line == own->line : option != nullptr && option->key == key)) {
        return std::nullopt;
    }

    std::string ownPart;
    bool ownHasKey = false;
    if (own != nullptr) {
        for (const auto& candidate : own->options) {
            if (candidate.key == key) {
                ownPart = fmt::format(ownValue, candidate.value, KeyLine(key));
                ownHasKey = true;
                break;
            }
        }
        if (key == methodKey) {
            ownPart = fmt::format(ownValue, own->Method(), KeyLine(key));
            ownHasKey = true;
        }
        if (!ownHasKey) {
            ownPart = fmt::format(noOwnValue, std::string(), KeyLine(key));
        }
    }
    ForeignValue foreign;
    foreign.line = line;
    std::string other;
    std::string_view format = fromOtherLine;
    const Stanza* stanza = file.StanzaAt(line);
    if (!inOwn && stanza != nullptr && stanza->IsIface()) {
        foreign.stanza = other = stanza->Name();
        if (other == interfaceName) {
            other += " " + stanza->Family();
        }
        // Moving the stanza up helps only when it has a line of the key.
        format = own == nullptr ? withoutStanza : ownHasKey ? fromEarlierStanza : fromLaterStanza;
    } else if (file.IsComment(line)) {
        format = fromComment;
    } else if (inOwn && option != nullptr) {
        foreign.lineKey = other = option->key;
        format = fromOtherKey;
    } else {
        other = Trimmed(file.Lines()[line]);
    }
    foreign.sentence = fmt::format(fmt::runtime(format), interfaceName, field, other, line + 1, ownPart, KeyLine(key),
                                   ownHasKey ? "put" : "add");
    return foreign;
}

std::string DescribeLineWithoutValue(const InterfacesText& file, const std::string& fileName,
                                     const std::string& interfaceName, const std::string& key, const std::string& field,
                                     unsigned int device)
{
    const auto found = ModuleReadLine(file.Lines(), interfaceName, key);
    if (!found) {
        // The file changed since the module read it.
        return fmt::format(valueMissingSomewhere, interfaceName, fileName, key);
    }
    const std::string text = Trimmed(file.Lines()[*found]);
    if (key == methodKey) {
        return fmt::format(methodMissing, *found + 1, fileName, text, interfaceName);
    }
    return fmt::format(valueMissing, *found + 1, fileName, text, key, device, field);
}

} // namespace Zel::Tools::Nimhost
