#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

namespace Zel::Hardware::Commons::Modules {

bool ModuleSettings::HasSetting(const BasicString& key) const
{
    return settings.find(key) != settings.end();
}

const BasicString& ModuleSettings::GetSetting(const BasicString& key) const
{
    auto found = settings.find(key);
    if (found == settings.end()) {
        throw System::Commons::InvalidConfigException(BasicString::Format("Setting '{0}' is not configured", key));
    }
    return found->second;
}

bool ModuleSettings::HasSettingField(const BasicString& key) const
{
    return fields.find(key) != fields.end();
}

const SettingField& ModuleSettings::GetSettingField(const BasicString& key) const
{
    auto found = fields.find(key);
    if (found == fields.end()) {
        throw System::Commons::InvalidConfigException(
            BasicString::Format("Setting field '{0}' is not configured", key));
    }
    return found->second;
}

} // namespace Zel::Hardware::Commons::Modules
