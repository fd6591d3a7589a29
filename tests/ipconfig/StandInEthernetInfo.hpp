// A stand-in for the Ethernet information module, the IP configuration
// module's source of interface names: a fixed list of names, and a choice
// between throwing std::out_of_range for a bad device number (as the real
// module does) and answering a name for any number (so the IP configuration
// module's own range test can be seen).
#pragma once

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <stdexcept>
#include <utility>
#include <vector>

namespace Zel::Test::IpConfig {

using Zel::System::Commons::BasicString;

class StandInEthernetInfo
    : public Zel::Hardware::Commons::Modules::HardwareModuleBase<Zel::Hardware::Nim::Modules::IEthernetInfoModule,
                                                                 StandInEthernetInfo> {
public:
    enum class BadNumber { Throws, AnswersName };

    StandInEthernetInfo(std::vector<BasicString> names, BadNumber badNumber)
        : names(std::move(names)), badNumber(badNumber), deviceCount(static_cast<unsigned int>(this->names.size()))
    {
    }

    // The count the module reports, apart from the names it knows.
    void SetDeviceCount(unsigned int count) { deviceCount = count; }
    unsigned int NameQueries() const { return nameQueries; }

    void SetupSettings(const Zel::Hardware::Commons::Modules::ModuleSettings&,
                       const Zel::Hardware::Commons::Modules::HardwareModuleProvider&) override
    {
    }
    void Dispose() override {}
    bool IsEnabled() const override { return true; }

    unsigned int GetDeviceCount() const override { return deviceCount; }
    unsigned int GetPortCount(unsigned int) const override { return 0; }
    BasicString GetInterfaceName(unsigned int device) const override
    {
        ++nameQueries;
        if (device >= 1 && device <= names.size()) {
            return names[device - 1];
        }
        if (badNumber == BadNumber::Throws) {
            throw std::out_of_range("device number out of range");
        }
        return "eth" + std::to_string(device);
    }
    BasicString GetMacAddress(unsigned int) const override { return {}; }
    Zel::Hardware::Nim::LinkState GetPortLinkState(unsigned int, unsigned int) const override
    {
        return Zel::Hardware::Nim::LinkState::Unknown;
    }
    Zel::Hardware::Nim::LinkSpeed GetPortLinkSpeed(unsigned int, unsigned int) const override
    {
        return Zel::Hardware::Nim::LinkSpeed::Unknown;
    }
    Zel::Hardware::Nim::LinkDuplex GetPortLinkDuplex(unsigned int, unsigned int) const override
    {
        return Zel::Hardware::Nim::LinkDuplex::Unknown;
    }
    BasicString GetPublicInterfaceName(unsigned int) const override { return {}; }
    BasicString GetPortPublicName(unsigned int, unsigned int) const override { return {}; }
    Zel::Hardware::Nim::NetworkInterfaceType GetInterfaceType(unsigned int) const override
    {
        return Zel::Hardware::Nim::NetworkInterfaceType::Ethernet;
    }
    std::vector<BasicString> GetListOfInterfaceNames() const override { return names; }

private:
    std::vector<BasicString> names;
    BadNumber badNumber;
    unsigned int deviceCount;
    mutable unsigned int nameQueries = 0;
};

} // namespace Zel::Test::IpConfig
