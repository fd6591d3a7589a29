#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// A table of text cells printed with aligned columns: two blanks between
// columns, the last column not padded. Widths count UTF-8 characters, so
// public names with non-ASCII letters keep the columns straight.
class TextTable {
public:
    explicit TextTable(std::vector<std::string> header = {});

    void AddRow(std::vector<std::string> cells);

    // Every line starts with `indent` and ends with a line feed.
    std::string Render(const std::string& indent = "") const;

private:
    static std::size_t DisplayWidth(const std::string& text);

    std::vector<std::vector<std::string>> rows;
};

} // namespace Zel::Tools::Nimhost
