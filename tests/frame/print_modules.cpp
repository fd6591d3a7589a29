// zel_print_modules [plug-in file]
//
// Loads the plug-in through the framework's loader, as the controller's
// framework does at start-up, and prints the plug-in's file name and the
// names of the modules it registers, one a line, in registration order.
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <fmt/format.h>

#include <exception>
#include <memory>

int main(int argc, char** argv)
{
    using Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader;
    using Zel::System::Commons::AppDomain;
    using Zel::System::Commons::BasicString;
    using Zel::System::Commons::Logging::LogManager;

    if (argc > 2) {
        fmt::print(stderr, "usage: {} [plug-in file]\n", argv[0]);
        return 2;
    }
    const BasicString plugin = argc == 2 ? BasicString(argv[1]) : BasicString(ZEL_PLUGIN_FILE);

    AppDomain appDomain;
    appDomain.AddSingleton(std::make_shared<LogManager>());
    try {
        SharedModuleLibraryLoader loader(plugin, appDomain);
        fmt::print("Plug-in: {}\n", loader.GetFileName());
        const auto names = loader.GetModuleNames();
        fmt::print("Registered modules ({}):\n", names.size());
        for (const auto& name : names) {
            fmt::print("  {}\n", name);
        }
    } catch (const std::exception& e) {
        fmt::print(stderr, "zel_print_modules: {}\n", e.what());
        return 1;
    }
    return 0;
}
