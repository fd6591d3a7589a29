#include "ip/LineDiff.hpp"

#include "ip/InterfacesText.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace Zel::Tools::Nimhost {

namespace {

using Kind = DiffLine::Kind;

constexpr std::size_t context = 3;

// Myers' greedy forward search over the lines that remain once the common
// head and tail are set aside; the furthest point of every diagonal is kept
// per round (only the diagonals that round can reach), to walk back.
void Middle(const std::vector<std::string>& a, const std::vector<std::string>& b, std::size_t head, std::size_t aEnd,
            std::size_t bEnd, std::vector<DiffLine>& out)
{
    const auto n = static_cast<long>(aEnd - head);
    const auto m = static_cast<long>(bEnd - head);
    const auto same = [&](long x, long y) {
        return a[head + static_cast<std::size_t>(x)] == b[head + static_cast<std::size_t>(y)];
    };
    const long max = n + m;
    std::vector<long> v(static_cast<std::size_t>(2 * max + 3), 0);
    const auto at = [&](std::vector<long>& row, long k) -> long& { return row[static_cast<std::size_t>(k + max + 1)]; };
    std::vector<std::vector<long>> rounds;
    bool done = max == 0;
    for (long d = 0; d <= max && !done; ++d) {
        rounds.emplace_back(v.begin() + (max + 1 - d), v.begin() + (max + 2 + d));
        for (long k = -d; k <= d; k += 2) {
            long x = (k == -d || (k != d && at(v, k - 1) < at(v, k + 1))) ? at(v, k + 1) : at(v, k - 1) + 1;
            long y = x - k;
            while (x < n && y < m && same(x, y)) {
                ++x;
                ++y;
            }
            at(v, k) = x;
            if (x >= n && y >= m) {
                done = true;
                break;
            }
        }
    }
    // Walked back from the end, so collected in reverse.
    std::vector<DiffLine> reversed;
    long x = n;
    long y = m;
    for (long d = static_cast<long>(rounds.size()) - 1; d >= 0; --d) {
        const auto& row = rounds[static_cast<std::size_t>(d)];
        const auto saved = [&](long k) { return row[static_cast<std::size_t>(k + d)]; };
        const long k = x - y;
        const long previousK = (k == -d || (k != d && saved(k - 1) < saved(k + 1))) ? k + 1 : k - 1;
        const long previousX = d == 0 ? 0 : saved(previousK);
        const long previousY = previousX - previousK;
        while (x > previousX && y > previousY) {
            --x;
            --y;
            reversed.push_back({Kind::Same, head + static_cast<std::size_t>(x), head + static_cast<std::size_t>(y)});
        }
        if (d > 0) {
            if (x == previousX) {
                reversed.push_back(
                    {Kind::Added, head + static_cast<std::size_t>(x), head + static_cast<std::size_t>(y - 1)});
            } else {
                reversed.push_back(
                    {Kind::Removed, head + static_cast<std::size_t>(x - 1), head + static_cast<std::size_t>(y)});
            }
        }
        x = previousX;
        y = previousY;
    }
    out.insert(out.end(), reversed.rbegin(), reversed.rend());
}

// The file's lines; a last line without a line feed carries the marker that
// a unified diff prints after it, so it differs from the same text with one.
std::vector<std::string> MarkedLines(std::string_view text)
{
    std::vector<std::string> lines = SplitLines(text);
    if (!text.empty() && text.back() != '\n') {
        lines.back() += "\n\\ No newline at end of file";
    }
    return lines;
}

std::string Range(std::size_t first, std::size_t count)
{
    // An empty range names the line before it.
    if (count == 0) {
        return fmt::format("{},0", first);
    }
    return count == 1 ? fmt::format("{}", first + 1) : fmt::format("{},{}", first + 1, count);
}

} // namespace

std::vector<DiffLine> DiffLines(const std::vector<std::string>& before, const std::vector<std::string>& after)
{
    std::size_t head = 0;
    while (head < before.size() && head < after.size() && before[head] == after[head]) {
        ++head;
    }
    std::size_t tail = 0;
    while (tail < before.size() - head && tail < after.size() - head &&
           before[before.size() - 1 - tail] == after[after.size() - 1 - tail]) {
        ++tail;
    }
    std::vector<DiffLine> lines;
    for (std::size_t i = 0; i < head; ++i) {
        lines.push_back({Kind::Same, i, i});
    }
    Middle(before, after, head, before.size() - tail, after.size() - tail, lines);
    for (std::size_t i = tail; i > 0; --i) {
        lines.push_back({Kind::Same, before.size() - i, after.size() - i});
    }
    // Within a run of changes, removed lines first.
    for (std::size_t i = 0; i < lines.size();) {
        std::size_t j = i;
        while (j < lines.size() && lines[j].kind != Kind::Same) {
            ++j;
        }
        std::stable_partition(lines.begin() + static_cast<long>(i), lines.begin() + static_cast<long>(j),
                              [](const DiffLine& line) { return line.kind == Kind::Removed; });
        i = j + 1;
    }
    return lines;
}

std::string UnifiedDiff(std::string_view before, std::string_view after, const std::string& label)
{
    const std::vector<std::string> a = MarkedLines(before);
    const std::vector<std::string> b = MarkedLines(after);
    const std::vector<DiffLine> lines = DiffLines(a, b);
    std::string text;
    std::size_t i = 0;
    while (i < lines.size()) {
        const auto changed = std::find_if(lines.begin() + static_cast<long>(i), lines.end(),
                                          [](const DiffLine& line) { return line.kind != Kind::Same; });
        if (changed == lines.end()) {
            break;
        }
        // A hunk runs from three lines before its first change to three after
        // its last, taking in later changes that come closer than that.
        const std::size_t first =
            std::max<std::size_t>(static_cast<std::size_t>(changed - lines.begin()), context) - context;
        std::size_t last = static_cast<std::size_t>(changed - lines.begin());
        for (std::size_t j = last, unchanged = 0; j < lines.size() && unchanged <= 2 * context; ++j) {
            unchanged = lines[j].kind == Kind::Same ? unchanged + 1 : 0;
            if (unchanged == 0) {
                last = j;
            }
        }
        const std::size_t end = std::min(lines.size(), last + 1 + context);
        std::size_t oldCount = 0;
        std::size_t newCount = 0;
        std::string body;
        for (std::size_t j = first; j < end; ++j) {
            const DiffLine& line = lines[j];
            const char mark = line.kind == Kind::Same ? ' ' : line.kind == Kind::Removed ? '-' : '+';
            oldCount += line.kind != Kind::Added ? 1 : 0;
            newCount += line.kind != Kind::Removed ? 1 : 0;
            body += mark + (line.kind == Kind::Added ? b[line.newLine] : a[line.oldLine]) + "\n";
        }
        text += fmt::format("@@ -{} +{} @@\n", Range(lines[first].oldLine, oldCount),
                            Range(lines[first].newLine, newCount));
        text += body;
        i = end;
    }
    return text.empty() ? text : fmt::format("--- {0}\n+++ {0}\n{1}", label, text);
}

} // namespace Zel::Tools::Nimhost
