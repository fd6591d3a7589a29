#pragma once

#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <cstdint>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::System::Commons::BasicString;

// The current IPv4 address, netmask and default gateway of each Ethernet
// device as the kernel holds them. Devices are numbered from 1 as the
// Ethernet information module numbers them; it turns a number into the
// kernel interface name, and a number it does not know throws
// std::out_of_range from there. A failed kernel read throws
// InvalidOperationException. No lock: after SetupSettings the module only
// reads, so queries may come from several threads.
class IpStatusModule
    : public Zel::Hardware::Commons::Modules::HardwareModuleBase<Zel::Hardware::Nim::Modules::IIpStatusModule,
                                                                 IpStatusModule>,
      private Zel::System::Commons::Logging::Loggable<IpStatusModule, false, false> {
public:
    IpStatusModule();
    ~IpStatusModule() override;
    IpStatusModule(const IpStatusModule&) = delete;
    IpStatusModule& operator=(const IpStatusModule&) = delete;

    // Finds the Ethernet information module (not owned; it must outlive this
    // module) and takes its device count once. Throws
    // InvalidOperationException when the provider has none.
    void SetupSettings(const Zel::Hardware::Commons::Modules::ModuleSettings& settings,
                       const Zel::Hardware::Commons::Modules::HardwareModuleProvider& provider) override;
    void Dispose() override;
    bool IsEnabled() const override;

    BasicString GetIpAddress(unsigned int device) const override;
    BasicString GetSubnetMask(unsigned int device) const override;
    BasicString GetDefaultGateway(unsigned int device) const override;
    // Whatever GetIpAddress answers, through its virtual slot.
    BasicString GetDeviceIpAddress(unsigned int device) const override;

private:
    using AccessFunction = int (Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess::*)(std::uint32_t,
                                                                                                 std::uint32_t,
                                                                                                 const BasicString&,
                                                                                                 BasicString&) const;

    // The common course of the three queries: name lookup, kernel read, and
    // a non-zero status turned into the exception of failureFormat.
    BasicString Query(unsigned int device, AccessFunction access, const char* traceFormat,
                      const char* failureFormat) const;

    Zel::Hardware::Nim::Modules::IEthernetInfoModule* ethInfoModule = nullptr;
    std::uint32_t deviceCount = 0;
    Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess socketAccess;
};

} // namespace Zel::Hardware::Modules::Nim::Linux
