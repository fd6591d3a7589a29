#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <vector>

namespace Zel::Hardware::Commons::Modules {

using Zel::System::Commons::BasicString;

// A table setting: lines of text columns, both numbered from 1.
class ZEL_API SettingField {
public:
    SettingField() = default;
    explicit SettingField(BasicString name) : name(std::move(name)) {}
    SettingField(BasicString name, std::vector<std::vector<BasicString>> lines)
        : name(std::move(name)), lines(std::move(lines))
    {
    }

    const BasicString& GetName() const { return name; }
    unsigned int GetLineCount() const { return static_cast<unsigned int>(lines.size()); }
    unsigned int GetColumnCount(unsigned int line) const;

    // Throws InvalidConfigException "Setting field '{0}' has no line {1}
    // column {2}" for a line or column that does not exist.
    const BasicString& GetSetting(unsigned int line, unsigned int column) const;

    void AddLine(std::vector<BasicString> columns) { lines.push_back(std::move(columns)); }

private:
    BasicString name;
    std::vector<std::vector<BasicString>> lines;
};

} // namespace Zel::Hardware::Commons::Modules
