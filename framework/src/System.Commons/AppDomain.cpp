#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <atomic>
#include <mutex>

namespace Zel::System::Commons {

namespace {
std::atomic<AppDomain*> currentDomain{nullptr};
}

AppDomain::AppDomain()
{
    previous = currentDomain.exchange(this);
}

AppDomain::~AppDomain()
{
    AppDomain* self = this;
    currentDomain.compare_exchange_strong(self, previous);
}

bool AppDomain::HasInstance()
{
    return currentDomain.load() != nullptr;
}

AppDomain& AppDomain::GetInstance()
{
    AppDomain* domain = currentDomain.load();
    if (domain == nullptr) {
        throw InvalidOperationException(
            BasicString::Format("Singleton instance of type '{0}' was not created yet!",
                                Diagnostics::RuntimeTypeInfo::DemangleSymbol(typeid(AppDomain).name())));
    }
    return *domain;
}

void AppDomain::Add(const std::type_info& type, std::shared_ptr<void> instance)
{
    std::unique_lock<std::shared_mutex> writer(lock);
    singletons[std::type_index(type)] = std::move(instance);
}

void* AppDomain::Get(const std::type_info& type) const
{
    {
        std::shared_lock<std::shared_mutex> reader(lock);
        auto found = singletons.find(std::type_index(type));
        if (found != singletons.end() && found->second) {
            return found->second.get();
        }
    }
    throw InvalidOperationException(
        BasicString::Format("AppDomain Singleton instance of type '{0}' was not created yet!",
                            Diagnostics::RuntimeTypeInfo::DemangleSymbol(type.name())));
}

} // namespace Zel::System::Commons
