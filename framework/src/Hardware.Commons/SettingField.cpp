#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Exception.hpp>

namespace Zel::Hardware::Commons::Modules {

unsigned int SettingField::GetColumnCount(unsigned int line) const
{
    if (line == 0 || line > lines.size()) {
        return 0;
    }
    return static_cast<unsigned int>(lines[line - 1].size());
}

const BasicString& SettingField::GetSetting(unsigned int line, unsigned int column) const
{
    if (line == 0 || line > lines.size() || column == 0 || column > lines[line - 1].size()) {
        throw System::Commons::InvalidConfigException(
            BasicString::Format("Setting field '{0}' has no line {1} column {2}", name, line, column));
    }
    return lines[line - 1][column - 1];
}

} // namespace Zel::Hardware::Commons::Modules
