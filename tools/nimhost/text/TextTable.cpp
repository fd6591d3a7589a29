#include "text/TextTable.hpp"

#include <algorithm>

namespace Zel::Tools::Nimhost {

TextTable::TextTable(std::vector<std::string> header)
{
    if (!header.empty()) {
        rows.push_back(std::move(header));
    }
}

void TextTable::AddRow(std::vector<std::string> cells)
{
    rows.push_back(std::move(cells));
}

std::size_t TextTable::DisplayWidth(const std::string& text)
{
    // UTF-8 continuation bytes (10xxxxxx) do not start a character.
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

std::string TextTable::Render(const std::string& indent) const
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        if (widths.size() < row.size()) {
            widths.resize(row.size(), 0);
        }
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], DisplayWidth(row[column]));
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size()) {
                line.append(widths[column] - DisplayWidth(row[column]) + 2, ' ');
            }
        }
        // A row whose last cells are empty would leave blanks behind.
        line.erase(line.find_last_not_of(' ') + 1);
        text += line;
        text += '\n';
    }
    return text;
}

} // namespace Zel::Tools::Nimhost
