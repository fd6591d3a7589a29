#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"
#include "Modules/Nim/Linux/Internal/PortFileReader.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port of a KSZ8794 switch read through its driver's per-port speed and
// duplex files ("path.{device}.{port}.speed" and ".duplex"), opened once and
// read afresh on every query. Only a missing speed file stops set-up; a
// duplex file that cannot be opened shows up as a read error (naming the
// speed file, like every read error of this port) at each duplex query.
class EthPortInfoSwitchKSZ8794
    : public IEthPortInfo,
      private Zel::System::Commons::Logging::Loggable<EthPortInfoSwitchKSZ8794, false, false> {
public:
    EthPortInfoSwitchKSZ8794(unsigned int deviceIndex, unsigned int portIndex,
                             const Zel::Hardware::Commons::Modules::ModuleSettings& settings);
    ~EthPortInfoSwitchKSZ8794() override;
    EthPortInfoSwitchKSZ8794(const EthPortInfoSwitchKSZ8794&) = delete;
    EthPortInfoSwitchKSZ8794& operator=(const EthPortInfoSwitchKSZ8794&) = delete;

    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;

private:
    PortFileReader files;
    BasicString speedFilePath;
    BasicString duplexFilePath;
    // Raw: the duplex descriptor may stay -1 (see the constructor).
    int fdSpeed = -1;
    int fdDuplex = -1;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
