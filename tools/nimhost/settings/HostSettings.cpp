#include "settings/HostSettings.hpp"

#include "settings/SettingsCheck.hpp"
#include "text/UsageError.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleName.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

namespace Zel::Tools::Nimhost {

using Zel::Hardware::Commons::Modules::SettingField;

namespace {

// The name of the sub-table that holds a module's setting fields.
constexpr std::string_view fieldsKey = "fields";

bool IsBareKey(std::string_view key)
{
    return !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

// "line:column: " of the character at `index`; columns count characters (not
// UTF-8's continuation bytes), as the TOML reader's do.
std::string Position(const std::string& text, std::size_t index)
{
    const std::size_t lineBreak = index == 0 ? std::string::npos : text.rfind('\n', index - 1);
    const auto begin = text.begin() + static_cast<std::ptrdiff_t>(lineBreak + 1);
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(index) + 1;
    const auto column =
        std::count_if(begin, end, [](char b) { return (static_cast<unsigned char>(b) & 0xC0U) != 0x80U; });
    return fmt::format("{}:{}: ", std::count(text.begin(), begin, '\n') + 1, column);
}

// The first of the faults that must not reach the TOML reader, with its
// position. A character beyond ASCII outside a text or a comment: TOML allows
// none there, but the TOML reader nimhost is built with
// (toml++ 3.3) does not refuse some of them (U+00A1 to U+0499, for one): it
// runs into undefined behaviour, so they must not reach it. As that reader
// scans an unquoted value up to its end (blank, ',', ']', '}', '#') before it
// looks at it, a quote inside one (0'x') opens no text here either. And what
// the reader takes for granted: a name after a table's '[', no '}' where an
// array's value belongs.
std::optional<std::string> FindUnreadableText(const std::string& text)
{
    char quote = 0; // the open text's quote
    bool multiLine = false;
    bool comment = false;
    bool bare = false; // in an unquoted key or value
    bool bareValue = false; // ... a value, which '=' and '.' do not end
    char last = '\n'; // the last of = [ ] { } , . and line breaks, or a bare word's start
    unsigned int arrays = 0;
    const auto oneOf = [](const char* set, char c) { return c != '\0' && std::strchr(set, c) != nullptr; };
    const std::string beyondAscii = "a character beyond ASCII belongs in a text (in quotes) or a comment";
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool tripled = text.compare(i, 3, std::string(3, c)) == 0;
        if (c == '\n') {
            comment = bare = false;
            quote = multiLine ? quote : 0;
            last = arrays > 0 ? last : c; // an array goes on over lines
            continue;
        }
        if (comment) {
            continue;
        }
        if (quote != 0) {
            if (c == '\\' && quote == '"') {
                // The reader asks whether the escaped character is blank; after a
                // line-ending backslash, whether each character that follows is.
                std::size_t next = i + 1;
                while (multiLine && next < text.size() && oneOf(" \t\r\n", text[next])) {
                    ++next;
                }
                if (next < text.size() && static_cast<unsigned char>(text[next]) >= 0x80U) {
                    return Position(text, next) + beyondAscii;
                }
                i = next > i + 1 ? next - 1 : i + 1; // an escaped character cannot close the text
            } else if (c == quote && (!multiLine || tripled)) {
                // A multi-line text may end in up to two more quotes of its own.
                for (int more = 0; multiLine && more < 4 && i + 1 < text.size() && text[i + 1] == c; ++more) {
                    ++i;
                }
                quote = 0;
            }
            continue;
        }
        const bool ends = oneOf(" \t\r,]}#", c) || (!bareValue && (c == '=' || c == '.'));
        if (static_cast<unsigned char>(c) >= 0x80U) {
            return Position(text, i) + beyondAscii;
        }
        if (bare && !ends) {
            continue;
        }
        bare = false;
        if (c == '#') {
            comment = true;
        } else if (c == '"' || c == '\'') {
            quote = c;
            multiLine = tripled;
            i += tripled ? 2 : 0;
        } else if (c == '[' && arrays == 0 && last == '\n') {
            i += text.compare(i + 1, 1, "[") == 0 ? 1U : 0U; // an array of tables' "[["
            const std::size_t name = std::min(text.find_first_not_of(" \t", i + 1), text.size());
            if (name < text.size() && std::isalnum(static_cast<unsigned char>(text[name])) == 0 &&
                !oneOf("_-\"']", text[name])) {
                return Position(text, name) + "a table's name (a word or a text in quotes) must follow '['";
            }
            last = c;
        } else if (c == '}' && arrays > 0 && (last == '[' || last == ',')) {
            return Position(text, i) + "a value belongs here, not '}'";
        } else if (oneOf("=[]{},.", c)) {
            // An array opens after '=', or anywhere in an array.
            arrays += c == '[' && (arrays > 0 || last == '=') ? 1U : 0U;
            arrays -= c == ']' && arrays > 0 ? 1U : 0U;
            last = c;
        } else if (!oneOf(" \t\r", c)) {
            bare = true;
            bareValue = arrays > 0 || last == '=';
            last = c;
        }
    }
    return std::nullopt;
}

std::string KeyText(std::string_view key)
{
    return IsBareKey(key) ? std::string(key) : TomlQuoted(key);
}

// Reports a fault at a node of the file: "file:line:column: key 'k': text".
class FaultReporter {
public:
    explicit FaultReporter(const std::string& path) : path(path) {}

    [[noreturn]] void At(const toml::source_region& where, const std::string& key, const std::string& text) const
    {
        throw UsageError(fmt::format("{}:{}:{}: key '{}': {}", path, where.begin.line, where.begin.column, key, text));
    }

private:
    const std::string& path;
};

std::string TypeName(const toml::node& node)
{
    std::ostringstream out;
    out << node.type();
    return out.str();
}

// A setting is text as the user wrote it; other TOML types would reach the
// module in a form the user never wrote (0x10 as "16"), so they are refused.
std::string RequireText(const toml::node& node, const std::string& key, const FaultReporter& fault,
                        const std::string& what)
{
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    if (node.is_table()) {
        fault.At(node.source(), key,
                 fmt::format("{} must be text, not a table (a dotted key needs quotes: \"path.1.1.sysFile\" = ...)",
                             what));
    }
    fault.At(node.source(), key, fmt::format("{} must be text in quotes, not {}", what, TypeName(node)));
}

SettingField ReadField(const std::string& name, const toml::node& node, const std::string& key,
                       const FaultReporter& fault)
{
    const auto* lines = node.as_array();
    if (lines == nullptr) {
        fault.At(node.source(), key, fmt::format("a setting field must be an array of lines, not {}", TypeName(node)));
    }
    SettingField field(name);
    unsigned int lineNumber = 0;
    for (const toml::node& lineNode : *lines) {
        ++lineNumber;
        const auto* columns = lineNode.as_array();
        if (columns == nullptr) {
            fault.At(lineNode.source(), key,
                     fmt::format("line {} must be an array of texts, not {}", lineNumber, TypeName(lineNode)));
        }
        std::vector<BasicString> texts;
        unsigned int columnNumber = 0;
        for (const toml::node& column : *columns) {
            ++columnNumber;
            texts.emplace_back(
                RequireText(column, key, fault, fmt::format("line {} column {}", lineNumber, columnNumber)));
        }
        field.AddLine(std::move(texts));
    }
    return field;
}

ModuleSettings ReadModule(const std::string& moduleKey, const toml::table& table, const FaultReporter& fault)
{
    ModuleSettings settings;
    for (auto&& [key, node] : table) {
        const std::string name(key.str());
        const std::string keyPath = moduleKey + "." + KeyText(name);
        if (name != fieldsKey) {
            settings.AddSetting(name, RequireText(node, keyPath, fault, "a setting"));
            continue;
        }
        const auto* fields = node.as_table();
        if (fields == nullptr) {
            fault.At(node.source(), keyPath,
                     fmt::format("must be the table of setting fields, not {}", TypeName(node)));
        }
        for (auto&& [fieldKey, fieldNode] : *fields) {
            const std::string fieldName(fieldKey.str());
            settings.AddSettingField(fieldName,
                                     ReadField(fieldName, fieldNode, keyPath + "." + KeyText(fieldName), fault));
        }
    }
    return settings;
}

} // namespace

std::string TomlQuoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\t':
            quoted += "\\t";
            break;
        case '\r':
            quoted += "\\r";
            break;
        default:
            if (byte < 0x20U || byte == 0x7FU) {
                quoted += fmt::format("\\u{:04X}", static_cast<unsigned int>(byte));
            } else {
                quoted += c;
            }
        }
    }
    quoted += '"';
    return quoted;
}

BasicString EthernetInfoModuleName()
{
    return Zel::Hardware::Commons::Modules::GetModuleNameOf<Zel::Hardware::Nim::Modules::IEthernetInfoModule>();
}

HostSettings HostSettings::LoadFile(const std::string& path)
{
    // A directory or an empty name would read as a file without tables: no
    // devices and no word of why.
    std::error_code error;
    if (path.empty()) {
        throw UsageError("--config needs the name of a settings file");
    }
    if (std::filesystem::is_directory(path, error)) {
        throw UsageError(fmt::format("--config {}: is a directory; name a settings file (TOML)", path));
    }
    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (const auto fault = FindUnreadableText(text)) {
        throw UsageError(path + ":" + *fault);
    }
    toml::table root;
    try {
        root = toml::parse_file(path);
    } catch (const toml::parse_error& e) {
        const auto& where = e.source().begin;
        if (where.line == 0) {
            // Not a position in the file (for example: it cannot be opened).
            throw UsageError(fmt::format("{}: {}", path, e.description()));
        }
        throw UsageError(fmt::format("{}:{}:{}: {}", path, where.line, where.column, e.description()));
    }

    const FaultReporter fault(path);
    HostSettings settings;
    settings.path = path;
    for (auto&& [key, node] : root) {
        const std::string moduleName(key.str());
        const auto* table = node.as_table();
        if (table == nullptr) {
            fault.At(node.source(), KeyText(moduleName),
                     "the top level holds only tables named after modules, such as "
                     "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]");
        }
        settings.modules.emplace(moduleName, ReadModule(KeyText(moduleName), *table, fault));
        settings.positions.emplace(moduleName, Position{key.source().begin.line, key.source().begin.column});
    }
    settings.document = std::make_shared<const toml::table>(std::move(root));
    return settings;
}

HostSettings HostSettings::FromInterfaces(const std::vector<std::string>& interfaceNames)
{
    ModuleSettings ethernet;
    SettingField table("interfaces");
    unsigned int device = 0;
    for (const auto& name : interfaceNames) {
        if (name == "lo") {
            continue;
        }
        ++device;
        const std::string number = std::to_string(device);
        table.AddLine({number, name, name, "1", "sysFile", name, "Ethernet"});
        ethernet.AddSetting(fmt::format("path.{}.1.sysFile", device), "/sys/class/net/" + name + "/");
    }
    ethernet.AddSettingField("interfaces", std::move(table));

    HostSettings settings;
    settings.modules.emplace(EthernetInfoModuleName(), std::move(ethernet));
    return settings;
}

void HostSettings::CheckModuleNames(const std::vector<BasicString>& registeredNames) const
{
    for (const auto& [name, settings] : modules) {
        if (std::find(registeredNames.begin(), registeredNames.end(), name) != registeredNames.end()) {
            continue;
        }
        std::string known;
        for (const auto& registered : registeredNames) {
            known += known.empty() ? std::string(registered) : ", " + registered;
        }
        const auto position = positions.find(name);
        const std::string where = position == positions.end()
            ? DescribeOrigin()
            : fmt::format("{}:{}:{}", path, position->second.line, position->second.column);
        throw UsageError(fmt::format("{}: key '{}': the plug-in registers no module of that name (it registers: {})",
                                     where, KeyText(name), known.empty() ? "none" : known));
    }
}

std::vector<std::string> HostSettings::Check(const std::vector<std::string>& machineInterfaces) const
{
    return document ? CheckSettingsFile(*document, path, machineInterfaces) : std::vector<std::string>{};
}

const ModuleSettings& HostSettings::For(const BasicString& moduleName) const
{
    static const ModuleSettings none;
    const auto found = modules.find(moduleName);
    return found != modules.end() ? found->second : none;
}

BasicString HostSettings::PortMode(unsigned int device) const
{
    const ModuleSettings& ethernet = For(EthernetInfoModuleName());
    if (device == 0 || !ethernet.HasSettingField("interfaces")) {
        return {};
    }
    const SettingField& table = ethernet.GetSettingField("interfaces");
    if (device > table.GetLineCount() || table.GetColumnCount(device) < 5) {
        return {};
    }
    return table.GetSetting(device, 5);
}

std::string HostSettings::DescribeOrigin() const
{
    return path.empty() ? std::string("built from this machine's interfaces") : path;
}

std::string HostSettings::ToToml() const
{
    std::string text;
    for (const auto& [name, settings] : modules) {
        if (!text.empty()) {
            text += '\n';
        }
        const std::string header = KeyText(name);
        text += fmt::format("[{}]\n", header);
        for (const auto& [key, value] : settings.GetSettings()) {
            text += fmt::format("{} = {}\n", KeyText(key), TomlQuoted(value));
        }
        if (settings.GetSettingFields().empty()) {
            continue;
        }
        text += fmt::format("\n[{}.{}]\n", header, fieldsKey);
        for (const auto& [fieldName, field] : settings.GetSettingFields()) {
            text += fmt::format("{} = [\n", KeyText(fieldName));
            for (unsigned int line = 1; line <= field.GetLineCount(); ++line) {
                std::string columns;
                for (unsigned int column = 1; column <= field.GetColumnCount(line); ++column) {
                    columns += (column > 1 ? ", " : "") + TomlQuoted(field.GetSetting(line, column));
                }
                text += fmt::format("  [{}],\n", columns);
            }
            text += "]\n";
        }
    }
    return text;
}

} // namespace Zel::Tools::Nimhost
