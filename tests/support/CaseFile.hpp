// Case files: the inputs and expected outputs of a table of cases written as
// the files and texts they are, so that an interfaces file, a settings file
// or a message reads as it stands on the board.
//
//   # comment lines before the first case
//   === <case name>
//   <the case's unnamed section: lines up to the first "--- ">
//   --- <section name>
//   <lines; each keeps its line break>
//   --- <section name> (escaped)
//   <text with \n, \r, \t, \\ and \xNN; the section's last line break dropped>
//
// A line starting with "=== " or "--- " cannot be content; write it escaped.
#pragma once

#include "ScratchDirectory.hpp"

#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Test {

struct Case {
    std::string name;
    std::map<std::string, std::string> sections;

    bool Has(const std::string& section) const { return sections.count(section) != 0; }
    // The section's text; a missing section is a fault of the case file.
    const std::string& operator[](const std::string& section) const
    {
        const auto found = sections.find(section);
        if (found == sections.end()) {
            throw std::runtime_error("case '" + name + "' has no section '" + section + "'");
        }
        return found->second;
    }
    // The lines of a section, each without its line break; none for a
    // section the case does not have.
    std::vector<std::string> Lines(const std::string& section) const
    {
        std::vector<std::string> lines;
        std::istringstream text(Has(section) ? (*this)[section] : std::string());
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    // A one-line section's text, without its line break.
    std::string Line(const std::string& section) const
    {
        const std::string& text = (*this)[section];
        return text.empty() || text.back() != '\n' ? text : text.substr(0, text.size() - 1);
    }
};

// A case shows as its name in gtest's messages.
inline void PrintTo(const Case& c, std::ostream* out)
{
    *out << c.name;
}

inline std::string Unescape(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        if (next == 'x' && i + 2 < text.size()) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += next == 'n' ? '\n' : next == 'r' ? '\r' : next == 't' ? '\t' : next;
        }
    }
    return out;
}

inline std::vector<Case> ReadCases(const std::string& path)
{
    const std::string escaped = " (escaped)";
    std::vector<Case> cases;
    std::string* section = nullptr;
    std::string* unescaped = nullptr; // the open section, when it is to be unescaped at its end
    const auto close = [&] {
        if (unescaped != nullptr) {
            *unescaped = Unescape(unescaped->substr(0, unescaped->empty() ? 0 : unescaped->size() - 1));
        }
    };
    std::istringstream text(ReadFile(path));
    for (std::string line; std::getline(text, line);) {
        const std::string marker = line.substr(0, 4);
        if (marker == "=== " || (marker == "--- " && !cases.empty())) {
            close();
            if (marker == "=== ") {
                cases.push_back({line.substr(4), {}});
                line = "--- ";
            }
            std::string name = line.substr(4);
            const bool escape = name.size() > escaped.size() && name.substr(name.size() - escaped.size()) == escaped;
            section = &cases.back().sections[escape ? name.substr(0, name.size() - escaped.size()) : name];
            unescaped = escape ? section : nullptr;
        } else if (section != nullptr) {
            *section += line + "\n";
        }
    }
    close();
    if (cases.empty()) {
        throw std::runtime_error("no cases in " + path);
    }
    return cases;
}

// The fields of a table row written with '|' between them ("a||b": three).
inline std::vector<std::string> Words(const std::string& row)
{
    std::vector<std::string> words;
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
        end = row.find('|', start);
        words.push_back(row.substr(start, end - start));
    }
    return words;
}

// The case of that name among cases; a missing one is a fault of the case file.
inline const Case& Named(const std::vector<Case>& cases, const std::string& name)
{
    for (const Case& c : cases) {
        if (c.name == name) {
            return c;
        }
    }
    throw std::runtime_error("no case '" + name + "'");
}

#ifdef ZEL_TEST_CASES
// The cases of `name` in the test's own cases/ directory.
inline std::vector<Case> Cases(const std::string& name)
{
    return ReadCases(std::string(ZEL_TEST_CASES) + "/" + name);
}
#endif

} // namespace Zel::Test
