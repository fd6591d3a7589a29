#include "ip/EditCheck.hpp"

#include "ip/InterfacesText.hpp"
#include "ip/LineDiff.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <vector>

namespace Zel::Tools::Nimhost {

namespace {

constexpr std::string_view methodKey = "inet";

// {0} the interface, {1} the line's number, {2} where the change lands.
constexpr std::string_view landsElsewhere = "the change would land in {2} (line {1}), not in {0}'s stanza: the "
                                            "controller's IP configuration writes into the first stanza whose iface "
                                            "line holds '{0}'; {3}";
// {2} the other interface.
constexpr std::string_view setsOtherMethod = "the change would also set the method of {2}'s iface line (line {1}): "
                                             "the controller's IP configuration writes the method into every iface "
                                             "line that holds '{0}'; edit {0}'s iface line by hand";
constexpr std::string_view touchesOtherLine = "the change would alter line {1} ('{2}'), which is not part of {0}'s "
                                              "stanza; {3}";
constexpr std::string_view addsAfterOtherLine = "the change would add a line after line {1} ('{2}'), which is not "
                                                "part of {0}'s stanza; {3}";
// {3} the key, {4} the other key, {5} put or add.
constexpr std::string_view replacesOtherKey = "the change would replace line {1} of {0}'s stanza ('{2}'), a {4} "
                                              "line: the controller's IP configuration takes the first line there "
                                              "that holds '{3}'; {5} the {3} line before {4}";
constexpr std::string_view replacesComment = "the change would replace the comment on line {1} of {0}'s stanza "
                                             "('{2}'): the controller's IP configuration leaves a comment alone only "
                                             "when its '#' is in the first column; move the '#' there";
constexpr std::string_view rewritesHeader = "the change would rewrite {0}'s iface line (line {1}) from '{2}' to '{3}'; "
                                            "edit that line by hand";
constexpr std::string_view addsOtherLine = "the change would add line {1} ('{2}') to {0}'s stanza; edit the file by "
                                           "hand";
// {1} the count, {2} the key, {3} the lines, {4} the lines to delete.
constexpr std::string_view leavesDuplicates = "the change would leave {1} {2} lines in {0}'s stanza (lines {3}), and "
                                              "ifupdown applies every one: the controller's IP configuration writes "
                                              "only into the four lines after the iface line; delete line {4}";
constexpr std::string_view methodNotSet = "the controller's IP configuration would leave {0}'s iface line (line {1}, "
                                          "'{2}') without the method '{3}'; write it there by hand: 'iface {0} inet "
                                          "{3}'";
constexpr std::string_view valueNotSet = "the change would leave {0}'s stanza without '{1} {2}'; edit the file by hand";
constexpr std::string_view noStanza = "{0} has no 'iface {0} inet' stanza in the file";

// Fixes of a change that lands outside the stanza.
constexpr std::string_view putOwnFirst = "put {0}'s stanza before {1}'s";
constexpr std::string_view putInetFirst = "put {0}'s inet stanza before its {1} stanza";
constexpr std::string_view addOwnStanza = "add an 'iface {0} inet static' stanza before {1}'s";
constexpr std::string_view makeRoom = "make room in {0}'s own stanza: an empty line or a '{1}' line among the four "
                                      "lines after its iface line";
constexpr std::string_view firstColumn = "move that comment's '#' to the first column";
constexpr std::string_view byHand = "edit the file by hand";

using Kind = DiffLine::Kind;

// "5", "5 and 7", "3, 5 and 7".
std::string Listed(const std::vector<std::size_t>& numbers)
{
    std::string text;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == numbers.size() ? " and " : ", ") + std::to_string(numbers[i]);
    }
    return text;
}

class Checker {
public:
    Checker(const std::string& before, const std::string& after, const EditRequest& request)
        : old(before), now(after), request(request), own(old.FindInet(request.interfaceName))
    {
    }

    EditVerdict Run()
    {
        const std::vector<DiffLine> lines = DiffLines(old.Lines(), now.Lines());
        for (const DiffLine& line : lines) {
            if (line.kind == Kind::Added) {
                added.insert(line.newLine);
            }
        }
        for (const DiffLine& line : lines) {
            const bool refused = line.kind == Kind::Removed ? !CheckRemoved(line.oldLine)
                : line.kind == Kind::Added                  ? !CheckAdded(line.oldLine, line.newLine)
                                                            : false;
            if (refused) {
                return verdict;
            }
        }
        CheckResult();
        return verdict;
    }

private:
    bool InOwn(std::size_t line) const { return own != nullptr && line >= own->line && line < own->end; }

    std::string Text(const InterfacesText& file, std::size_t line) const { return Trimmed(file.Lines()[line]); }

    bool Refuse(std::string reason)
    {
        verdict.allowed = false;
        verdict.reason = std::move(reason);
        return false;
    }

    // Whether the text at `line` of the old file (a removed line, or the line
    // an added one follows) lies outside the stanza; if so, refuses.
    bool RefuseOutside(std::size_t line, std::string_view otherLine)
    {
        const std::string& name = request.interfaceName;
        const Stanza* target = old.StanzaAt(line);
        std::string fix;
        if (target != nullptr && target->IsIface() && target != own && request.key == methodKey &&
            line == target->line) {
            return Refuse(fmt::format(setsOtherMethod, name, line + 1, target->Name()));
        }
        if (target != nullptr && target->IsIface() && target != own) {
            const std::string where = target->Name() == name ? fmt::format("{}'s {} stanza", name, target->Family())
                                                             : fmt::format("{}'s stanza", target->Name());
            fix = own == nullptr           ? fmt::format(addOwnStanza, name, target->Name())
                : own->line > target->line ? target->Name() == name ? fmt::format(putInetFirst, name, target->Family())
                                                                    : fmt::format(putOwnFirst, name, target->Name())
                                           : fmt::format(makeRoom, name, request.key);
            return Refuse(fmt::format(landsElsewhere, name, line + 1, where, fix));
        }
        fix = old.IsComment(line)                ? std::string(firstColumn)
            : own != nullptr && own->line < line ? fmt::format(makeRoom, name, request.key)
                                                 : std::string(byHand);
        return Refuse(fmt::format(fmt::runtime(otherLine), name, line + 1, Text(old, line), fix));
    }

    bool CheckRemoved(std::size_t line)
    {
        if (!InOwn(line)) {
            return RefuseOutside(line, touchesOtherLine);
        }
        if (line == own->line) {
            return true; // judged as a whole in CheckResult
        }
        const std::string& name = request.interfaceName;
        if (old.IsComment(line)) {
            return Refuse(fmt::format(replacesComment, name, line + 1, Text(old, line)));
        }
        const Option* option = old.OptionAt(line);
        if (option == nullptr || option->key == request.key) {
            return true;
        }
        bool ownHasKey = false;
        for (const auto& candidate : own->options) {
            ownHasKey = ownHasKey || candidate.key == request.key;
        }
        return Refuse(fmt::format(replacesOtherKey, name, line + 1, Text(old, line), request.key, option->key,
                                  ownHasKey ? "put" : "add"));
    }

    // An added line goes before old line `position`: it belongs to the stanza
    // of the line above it.
    bool CheckAdded(std::size_t position, std::size_t newLine)
    {
        if (!(own != nullptr && position > own->line && position <= own->end)) {
            if (position == 0) {
                return Refuse(fmt::format(addsOtherLine, request.interfaceName, newLine + 1, Text(now, newLine)));
            }
            return RefuseOutside(position - 1, addsAfterOtherLine);
        }
        const Stanza* nowOwn = now.FindInet(request.interfaceName);
        const Option* option = now.OptionAt(newLine);
        if ((nowOwn != nullptr && newLine == nowOwn->line) || Text(now, newLine).empty() ||
            (option != nullptr && option->key == request.key)) {
            return true;
        }
        return Refuse(fmt::format(addsOtherLine, request.interfaceName, newLine + 1, Text(now, newLine)));
    }

    // The stanza after the change: its iface line changed in the method word
    // alone, and one line of the key with the value asked for.
    void CheckResult()
    {
        const std::string& name = request.interfaceName;
        const Stanza* nowOwn = now.FindInet(name);
        if (own == nullptr || nowOwn == nullptr) {
            Refuse(own == nullptr ? fmt::format(noStanza, name)
                                  : fmt::format(rewritesHeader, name, own->line + 1, Text(old, own->line),
                                                own->line < now.Lines().size() ? Text(now, own->line) : std::string()));
            return;
        }
        std::vector<std::string> oldWords = own->words;
        std::vector<std::string> nowWords = nowOwn->words;
        oldWords.resize(std::max<std::size_t>(oldWords.size(), 3));
        nowWords.resize(std::max<std::size_t>(nowWords.size(), 3));
        oldWords[2].clear();
        nowWords[2].clear();
        if (oldWords != nowWords) {
            Refuse(fmt::format(rewritesHeader, name, own->line + 1, Text(old, own->line), Text(now, nowOwn->line)));
            return;
        }
        if (request.key == methodKey) {
            if (nowOwn->Method() != request.value) {
                Refuse(fmt::format(methodNotSet, name, nowOwn->line + 1, Text(now, nowOwn->line), request.value));
            }
            return;
        }
        if (own->Method() != nowOwn->Method()) {
            verdict.methodChange = fmt::format("{} -> {}", own->Method(), nowOwn->Method());
        }
        std::vector<const Option*> lines;
        for (const auto& option : nowOwn->options) {
            if (option.key == request.key) {
                lines.push_back(&option);
            }
        }
        if (lines.size() > 1) {
            RefuseDuplicates(lines);
        } else if (lines.empty() || lines.front()->value != Trimmed(request.value)) {
            Refuse(fmt::format(valueNotSet, name, request.key, request.value));
        }
    }

    // Names every line of the key, and as the ones to delete those the
    // change did not write (the second, when it wrote them all).
    void RefuseDuplicates(const std::vector<const Option*>& lines)
    {
        std::vector<std::size_t> all;
        std::vector<std::size_t> untouched;
        for (const Option* option : lines) {
            all.push_back(option->line + 1);
            if (added.count(option->line) == 0) {
                untouched.push_back(option->line + 1);
            }
        }
        if (untouched.empty()) {
            untouched.assign(all.begin() + 1, all.end());
        }
        Refuse(fmt::format(leavesDuplicates, request.interfaceName, lines.size(), request.key, Listed(all),
                           Listed(untouched)));
    }

    InterfacesText old;
    InterfacesText now;
    const EditRequest& request;
    const Stanza* own;
    EditVerdict verdict;
    // The new file's lines that the change added.
    std::set<std::size_t> added;
};

} // namespace

EditVerdict CheckEdit(const std::string& before, const std::string& after, const EditRequest& request)
{
    return Checker(before, after, request).Run();
}

} // namespace Zel::Tools::Nimhost
