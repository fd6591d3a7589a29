#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"
#include "Modules/Nim/Linux/Internal/NetworkInterfaceAccess.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <memory>
#include <vector>

namespace Zel::Hardware::Modules::Nim::Linux {

// The controller's Ethernet devices and their ports. SetupSettings builds the
// device table once from the "mandatoryInterfaces" setting, the "interfaces"
// table and the kernel's interface list; afterwards the table is read-only,
// so the queries take no lock and may run on any thread. Device and port
// numbers count from 1; a bad one throws the vector's std::out_of_range.
// Set-up failures are the framework's exceptions; devices appended before a
// failure stay in the table.
class EthernetInfoModule
    : public ::Zel::Hardware::Commons::Modules::HardwareModuleBase<::Zel::Hardware::Nim::Modules::IEthernetInfoModule,
                                                                   EthernetInfoModule>,
      private ::Zel::System::Commons::Logging::Loggable<EthernetInfoModule> {
public:
    using BasicString = ::Zel::System::Commons::BasicString;
    using ModuleSettings = ::Zel::Hardware::Commons::Modules::ModuleSettings;
    using HardwareModuleProvider = ::Zel::Hardware::Commons::Modules::HardwareModuleProvider;
    using NetworkInterfaceType = ::Zel::Hardware::Nim::NetworkInterfaceType;
    using LinkState = ::Zel::Hardware::Nim::LinkState;
    using LinkSpeed = ::Zel::Hardware::Nim::LinkSpeed;
    using LinkDuplex = ::Zel::Hardware::Nim::LinkDuplex;
    using IEthPortInfo = Internal::IEthPortInfo;

    // One configured device whose kernel interface existed at set-up.
    struct DeviceEntry {
        BasicString publicName;
        BasicString name;
        BasicString macAddress;
        NetworkInterfaceType interfaceType = NetworkInterfaceType::Unknown;
        std::vector<std::shared_ptr<IEthPortInfo>> ports;
    };

    // Starts with an empty device table; opens the class's log channel, no
    // I/O. kernel answers the interface list and the MAC addresses.
    explicit EthernetInfoModule(std::unique_ptr<const Internal::NetworkInterfaceAccess> kernel =
                                    std::make_unique<const Internal::NetworkInterfaceAccess>());
    ~EthernetInfoModule() override;
    EthernetInfoModule(const EthernetInfoModule&) = delete;
    EthernetInfoModule& operator=(const EthernetInfoModule&) = delete;

    void SetupSettings(const ModuleSettings& settings, const HardwareModuleProvider& provider) override;
    void Dispose() override;
    bool IsEnabled() const override;

    unsigned int GetDeviceCount() const override;
    unsigned int GetPortCount(unsigned int device) const override;
    BasicString GetInterfaceName(unsigned int device) const override;
    BasicString GetMacAddress(unsigned int device) const override;
    LinkState GetPortLinkState(unsigned int device, unsigned int port) const override;
    LinkSpeed GetPortLinkSpeed(unsigned int device, unsigned int port) const override;
    LinkDuplex GetPortLinkDuplex(unsigned int device, unsigned int port) const override;
    BasicString GetPublicInterfaceName(unsigned int device) const override;
    BasicString GetPortPublicName(unsigned int device, unsigned int port) const override;
    NetworkInterfaceType GetInterfaceType(unsigned int device) const override;
    // Asks the kernel afresh on every call (all link-layer interfaces, not
    // only the configured ones).
    std::vector<BasicString> GetListOfInterfaceNames() const override;

    // Names of the kernel's link-layer interfaces, in the kernel's order.
    // Throws InvalidOperationException when the list cannot be read.
    std::vector<BasicString> ReadCurrentIfNames() const;
    bool CheckName(const BasicString& name, const std::vector<BasicString>& names) const;
    // "00:A0:45:1B:2C:3D"; throws InvalidOperationException on failure.
    BasicString ReadMacAddress(const BasicString& interfaceName) const;
    // Throws ArgumentException for a text the framework does not know.
    NetworkInterfaceType ConvertNetworkInterfaceType(const BasicString& text) const;
    // The port strategy named by mode, with portPublicName set. Throws
    // ArgumentException "Unknown mode"; a strategy's constructor exception
    // passes through.
    std::shared_ptr<IEthPortInfo> CreateEthPortInfo(const BasicString& mode, unsigned int deviceIndex,
                                                    unsigned int portIndex, const BasicString& interfaceName,
                                                    const ModuleSettings& settings,
                                                    const BasicString& portPublicName) const;

private:
    std::unique_ptr<const Internal::NetworkInterfaceAccess> kernel;
    std::vector<DeviceEntry> devices;
};

} // namespace Zel::Hardware::Modules::Nim::Linux
