#include "plugin/PluginHost.hpp"

#include "text/ExceptionText.hpp"

#include <cstdio>
#include <exception>

namespace Zel::Tools::Nimhost {

PluginHost::PluginHost(const std::string& pluginPath, Zel::System::Commons::AppDomain& appDomain)
    : loader(BasicString(pluginPath), appDomain)
{
}

PluginHost::~PluginHost()
{
    try {
        Stop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "nimhost: while shutting the modules down: %s\n", DescribeForUser(e, false).c_str());
    } catch (...) {
        std::fprintf(stderr, "nimhost: while shutting the modules down: unknown exception\n");
    }
}

void PluginHost::Start(const HostSettings& settings)
{
    // Every module exists and is known to the provider before the first
    // SetupSettings, since set-up looks the others up.
    for (const auto& name : loader.GetModuleNames()) {
        Entry entry;
        entry.name = name;
        entry.module = loader.CreateModule(name);
        provider.AddHardwareModule(*entry.module);
        modules.push_back(std::move(entry));
    }
    for (auto& entry : modules) {
        entry.module->SetupSettings(settings.For(entry.name), provider);
        entry.setUp = true;
    }
}

void PluginHost::Stop()
{
    std::exception_ptr first;
    for (auto& entry : modules) {
        if (!entry.setUp) {
            continue;
        }
        entry.setUp = false;
        try {
            entry.module->Dispose();
        } catch (...) {
            if (!first) {
                first = std::current_exception();
            }
        }
    }
    // Later modules may refer to earlier ones (IpConfig holds EthernetInfo),
    // so they go first.
    while (!modules.empty()) {
        modules.pop_back();
    }
    if (first) {
        std::rethrow_exception(first);
    }
}

} // namespace Zel::Tools::Nimhost
