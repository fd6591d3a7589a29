#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Tools::Nimhost {

// The lines two versions of a file share, and those only one of them has: a
// shortest edit script (Myers' difference algorithm), so a change of one line
// shows as that line and no more. Pure functions over text.

struct DiffLine {
    enum class Kind { Same, Removed, Added };
    Kind kind = Kind::Same;
    // Index in the old lines (Same, Removed), or the old line an added line
    // goes before (the old line count when it goes at the end).
    std::size_t oldLine = 0;
    // Index in the new lines (Same, Added), or where a removed line stood.
    std::size_t newLine = 0;
};

// Every line of both, in file order; removed lines come before the lines
// added in their place.
std::vector<DiffLine> DiffLines(const std::vector<std::string>& before, const std::vector<std::string>& after);

// The change from `before` to `after` as a unified diff with three lines of
// context, headed "--- <label>" and "+++ <label>", as `diff -u` and `patch`
// know it; empty when the texts are equal. A last line without a line feed
// is marked "\ No newline at end of file".
std::string UnifiedDiff(std::string_view before, std::string_view after, const std::string& label);

} // namespace Zel::Tools::Nimhost
