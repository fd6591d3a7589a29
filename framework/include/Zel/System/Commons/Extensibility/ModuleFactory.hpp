#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace Zel::System::Commons::Extensibility {

// A name-to-factory table in registration order. Written while the owning
// library is built, read-only afterwards; no lock.
template <typename IModule>
class ModuleFactory {
public:
    using FactoryFunction = std::function<std::unique_ptr<IModule>()>;
    using FactoryTable = std::vector<std::pair<BasicString, FactoryFunction>>;

    virtual ~ModuleFactory() = default;

    // Appends (name, function). Throws ArgumentException, checked in this
    // order: empty name "Invalid module name", empty function "Invalid
    // factory function.", a name already present (byte for byte) "Duplicate
    // module name". The table is unchanged after a failure.
    void AddFactoryFunction(const BasicString& moduleName, FactoryFunction function)
    {
        if (moduleName.empty()) {
            throw ArgumentException::Create("moduleName", moduleName, "Invalid module name");
        }
        if (!function) {
            throw ArgumentException::Create("function", function.template target<std::unique_ptr<IModule> (*)()>(),
                                            "Invalid factory function.");
        }
        for (const auto& entry : factoryTable) {
            if (entry.first == moduleName) {
                throw ArgumentException::Create("moduleName", moduleName, "Duplicate module name");
            }
        }
        factoryTable.emplace_back(moduleName, std::move(function));
    }

    bool HasModule(const BasicString& moduleName) const { return Find(moduleName) != nullptr; }

    // Throws ArgumentException "Unknown module name" for a name not in the table.
    std::unique_ptr<IModule> CreateModule(const BasicString& moduleName) const
    {
        const FactoryFunction* function = Find(moduleName);
        if (function == nullptr) {
            throw ArgumentException::Create("moduleName", moduleName, "Unknown module name");
        }
        return (*function)();
    }

    std::vector<BasicString> GetModuleNames() const
    {
        std::vector<BasicString> names;
        names.reserve(factoryTable.size());
        for (const auto& entry : factoryTable) {
            names.push_back(entry.first);
        }
        return names;
    }

    const FactoryTable& GetFactoryTable() const { return factoryTable; }

private:
    const FactoryFunction* Find(const BasicString& moduleName) const
    {
        for (const auto& entry : factoryTable) {
            if (entry.first == moduleName) {
                return &entry.second;
            }
        }
        return nullptr;
    }

    FactoryTable factoryTable;
};

} // namespace Zel::System::Commons::Extensibility
