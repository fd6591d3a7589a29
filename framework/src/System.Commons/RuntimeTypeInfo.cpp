#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace Zel::System::Commons::Diagnostics {

namespace {
void ReplaceAll(std::string& text, std::string_view from, std::string_view to)
{
    for (std::size_t pos = text.find(from); pos != std::string::npos; pos = text.find(from, pos + to.size())) {
        text.replace(pos, from.size(), to);
    }
}
} // namespace

BasicString RuntimeTypeInfo::DemangleSymbol(const char* symbol)
{
    if (symbol == nullptr) {
        return BasicString();
    }
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                          &std::free);
    if (status != 0 || !demangled) {
        return BasicString();
    }
    return BasicString(demangled.get());
}

BasicString RuntimeTypeInfo::GetDottedTypeName(const std::type_info& type)
{
    BasicString name = DemangleSymbol(type.name());
    if (name.empty()) {
        throw Exception(BasicString::Format("Demangling of type name '{0}' failed.", type.name()));
    }
    ReplaceAll(name, "class ", "");
    ReplaceAll(name, "struct ", "");
    ReplaceAll(name, "enum ", "");
    ReplaceAll(name, "::", ".");
    return name;
}

} // namespace Zel::System::Commons::Diagnostics
