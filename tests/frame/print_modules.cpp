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
    if (argc > 2) {
        fmt::print(stderr, "usage: {} [plug-in file]\n", argv[0]);
        return 2;
    }
    Zel::System::Commons::AppDomain appDomain;
    appDomain.AddSingleton(std::make_shared<Zel::System::Commons::Logging::LogManager>());
    try {
        Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader loader(argc == 2 ? argv[1] : ZEL_PLUGIN_FILE,
                                                                          appDomain);
        const auto names = loader.GetModuleNames();
        fmt::print("Plug-in: {}\nRegistered modules ({}):\n", loader.GetFileName(), names.size());
        for (const auto& name : names) {
            fmt::print("  {}\n", name);
        }
    } catch (const std::exception& e) {
        fmt::print(stderr, "zel_print_modules: {}\n", e.what());
        return 1;
    }
    return 0;
}
