// A stand-in for the Ethernet information module, the source of interface
// names for the IP configuration and IP status modules: a fixed list of
// names, a device count that may differ from the list's length, and a choice
// between throwing std::out_of_range for a number outside the list (as the
// real module does) and answering "eth<n>" for it (so that the using
// module's own range test can be seen).
#pragma once

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <stdexcept>
#include <utility>
#include <vector>

namespace Zel::Test {

using Zel::System::Commons::BasicString;
namespace Nim = Zel::Hardware::Nim;

class StandInEthernetInfo
    : public Zel::Hardware::Commons::Modules::HardwareModuleBase<Nim::Modules::IEthernetInfoModule,
                                                                 StandInEthernetInfo> {
public:
    enum class BadNumber { Throws, AnswersName };

    StandInEthernetInfo(std::vector<BasicString> names, BadNumber badNumber)
        : deviceCount(static_cast<unsigned int>(names.size())), names(std::move(names)), badNumber(badNumber)
    {
    }

    unsigned int deviceCount; // what GetDeviceCount answers
    mutable unsigned int nameQueries = 0;

    void SetupSettings(const Zel::Hardware::Commons::Modules::ModuleSettings&,
                       const Zel::Hardware::Commons::Modules::HardwareModuleProvider&) override
    {
    }
    void Dispose() override {}
    bool IsEnabled() const override { return true; }
    unsigned int GetDeviceCount() const override { return deviceCount; }
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
    std::vector<BasicString> GetListOfInterfaceNames() const override { return names; }

    unsigned int GetPortCount(unsigned int) const override { return 0; }
    BasicString GetMacAddress(unsigned int) const override { return {}; }
    Nim::LinkState GetPortLinkState(unsigned int, unsigned int) const override { return Nim::LinkState::Unknown; }
    Nim::LinkSpeed GetPortLinkSpeed(unsigned int, unsigned int) const override { return Nim::LinkSpeed::Unknown; }
    Nim::LinkDuplex GetPortLinkDuplex(unsigned int, unsigned int) const override { return Nim::LinkDuplex::Unknown; }
    BasicString GetPublicInterfaceName(unsigned int) const override { return {}; }
    BasicString GetPortPublicName(unsigned int, unsigned int) const override { return {}; }
    Nim::NetworkInterfaceType GetInterfaceType(unsigned int) const override
    {
        return Nim::NetworkInterfaceType::Ethernet;
    }

private:
    std::vector<BasicString> names;
    BadNumber badNumber;
};

} // namespace Zel::Test
