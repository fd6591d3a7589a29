#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"
#include "Modules/Nim/Linux/Internal/SpiSwitchRegisterReader.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port (1 or 2) of a KSZ8794 switch whose status registers are read over
// spidev ("path.{device}.spi"), one SPI_IOC_MESSAGE transfer per register.
// All objects of the class share one SPI descriptor: the first constructor
// opens it and checks the chip (throwing on a wrong or silent chip, and
// leaving the device open, so later ports skip the check); the first
// destructor closes it for all. Queries are const, never throw, need no lock.
class EthPortInfoSwitchKSZ8794spi
    : public IEthPortInfo,
      private Zel::System::Commons::Logging::Loggable<EthPortInfoSwitchKSZ8794spi, false, false> {
public:
    EthPortInfoSwitchKSZ8794spi(unsigned int deviceIndex, unsigned int portIndex,
                                const Zel::Hardware::Commons::Modules::ModuleSettings& settings);
    ~EthPortInfoSwitchKSZ8794spi() override;
    EthPortInfoSwitchKSZ8794spi(const EthPortInfoSwitchKSZ8794spi&) = delete;
    EthPortInfoSwitchKSZ8794spi& operator=(const EthPortInfoSwitchKSZ8794spi&) = delete;

    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;

private:
    static SpiSwitchRegisterReader spi;

    unsigned char regMode = 0;
    unsigned char regLink = 0;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
