// The modules under measurement, set up once per run as the framework would:
// device 1 is eth0 read through its sysfs attribute files, device 2 is eth1
// read through the I210 driver's ioctls; the IP status and IP configuration
// modules find the Ethernet module through the provider.
#pragma once

#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/IpConfigModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>

#include <string>

namespace Zel::Bench {

using Zel::Hardware::Commons::Modules::ModuleSettings;

struct BenchRig {
    Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule ethernet;
    Zel::Hardware::Modules::Nim::Linux::IpStatusModule ipStatus;
    Zel::Hardware::Modules::Nim::Linux::IpConfigModule ipConfig;
    Zel::Hardware::Commons::Modules::HardwareModuleProvider provider;
};

// Interface names of the scenario in bench.scenario.
inline const char* const sysFileInterface = "eth0";
inline const char* const i210Interface = "eth1";

// Built on first use (inside the sandbox only); the same rig for every
// benchmark of the run.
BenchRig& Rig();

// Settings of an Ethernet module with one line per interface, each with
// `ports` ports of `mode`; sysFile ports point at the interface's own
// attribute directory.
ModuleSettings EthernetSettings(const std::vector<std::string>& interfaces, unsigned int ports,
                                const std::vector<std::string>& modes);

} // namespace Zel::Bench
