#pragma once

#include "Modules/Commons/Linux/GpioAccess.hpp"
#include "Modules/Commons/Linux/GpioLineReader.hpp"
#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"
#include "Modules/Nim/Linux/Internal/SpiSwitchRegisterReader.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <optional>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port (1 or 2) of a KSZ8863 switch: link from a GPIO line, speed and
// duplex from the port's status register over spidev ("path.{device}.spi").
// The link line is a sysfs value file ("path.{device}.{port}.link") or, when
// "path.{device}.{port}.linkLine" is set, a line of the GPIO character device
// (an offset or name on the chip "path.{device}.{port}.linkChip", or a line
// name on any chip without it); GpioLineReader reads it. All objects of the class share
// one SPI descriptor: the first constructor opens it and checks the chip
// (throwing on a wrong or silent chip, and leaving the device open, so later
// ports skip the check); the first destructor closes it for all. Queries are
// const, never throw, need no lock.
class EthPortInfoSwitchKSZ8863gpio
    : public IEthPortInfo,
      private Zel::System::Commons::Logging::Loggable<EthPortInfoSwitchKSZ8863gpio, false, false> {
public:
    EthPortInfoSwitchKSZ8863gpio(unsigned int deviceIndex, unsigned int portIndex,
                                 const Zel::Hardware::Commons::Modules::ModuleSettings& settings);
    ~EthPortInfoSwitchKSZ8863gpio() override;
    EthPortInfoSwitchKSZ8863gpio(const EthPortInfoSwitchKSZ8863gpio&) = delete;
    EthPortInfoSwitchKSZ8863gpio& operator=(const EthPortInfoSwitchKSZ8863gpio&) = delete;

    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;

private:
    static SpiSwitchRegisterReader spi;

    // Reads the status register once the link line says up.
    bool ReadStatus(unsigned char& status) const;

    Zel::Hardware::Modules::Commons::Linux::GpioAccess gpioAccess;
    BasicString linkGpioPath;
    // Raw: a constructor that fails after opening it leaves it open, as the
    // controller's runtime always has (set-up fails as a whole then).
    int fdLinkGpio = -1;
    // Set instead of the value file for a line of the character device.
    std::optional<Zel::Hardware::Modules::Commons::Linux::GpioLineReader> linkLine;
    unsigned char regStatus = 0;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
