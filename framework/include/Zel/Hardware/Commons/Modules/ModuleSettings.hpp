#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <map>

namespace Zel::Hardware::Commons::Modules {

// The configuration the framework hands a module: single settings (key and
// text) and setting fields (tables), both keyed by name.
class ZEL_API ModuleSettings {
public:
    bool HasSetting(const BasicString& key) const;
    // Throws InvalidConfigException "Setting '{0}' is not configured" for a
    // key that is not configured; a configured empty text is returned as is.
    const BasicString& GetSetting(const BasicString& key) const;

    bool HasSettingField(const BasicString& key) const;
    // Throws InvalidConfigException "Setting field '{0}' is not configured".
    const SettingField& GetSettingField(const BasicString& key) const;

    void AddSetting(const BasicString& key, const BasicString& value) { settings[key] = value; }
    void AddSettingField(const BasicString& key, SettingField field) { fields[key] = std::move(field); }

    const std::map<BasicString, BasicString>& GetSettings() const { return settings; }
    const std::map<BasicString, SettingField>& GetSettingFields() const { return fields; }

private:
    std::map<BasicString, BasicString> settings;
    std::map<BasicString, SettingField> fields;
};

} // namespace Zel::Hardware::Commons::Modules
