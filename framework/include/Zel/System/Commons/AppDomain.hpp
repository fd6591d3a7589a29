#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <memory>
#include <shared_mutex>
#include <typeindex>
#include <unordered_map>

namespace Zel::System::Commons {

// The process's registry of type-keyed singletons (the log manager among
// them). The host creates one AppDomain before it loads any plug-in and keeps
// it alive until every plug-in is unloaded; the last one constructed is the
// process's current domain. Lookups take a reader lock; AddSingleton a writer
// lock.
class ZEL_API AppDomain {
public:
    AppDomain();
    ~AppDomain();
    AppDomain(const AppDomain&) = delete;
    AppDomain& operator=(const AppDomain&) = delete;

    // Throws InvalidOperationException "Singleton instance of type '{0}' was
    // not created yet!" when no AppDomain exists.
    static AppDomain& GetInstance();
    static bool HasInstance();

    template <typename T>
    void AddSingleton(std::shared_ptr<T> instance)
    {
        Add(typeid(T), std::move(instance));
    }

    // Throws InvalidOperationException "AppDomain Singleton instance of type
    // '{0}' was not created yet!" when the domain holds no T.
    template <typename T>
    T& GetSingleton() const
    {
        return *static_cast<T*>(Get(typeid(T)));
    }

    template <typename T>
    static T& GetCurrentSingleton()
    {
        return GetInstance().GetSingleton<T>();
    }

private:
    void Add(const std::type_info& type, std::shared_ptr<void> instance);
    void* Get(const std::type_info& type) const;

    // The domain that was current before this one; current again when this
    // one goes.
    AppDomain* previous = nullptr;
    mutable std::shared_mutex lock;
    std::unordered_map<std::type_index, std::shared_ptr<void>> singletons;
};

} // namespace Zel::System::Commons
