#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <fcntl.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::ArgumentException;

// Shared by both ports of the switch: the first port opens the device and
// checks the chip, the first destructor closes it for all.
SpiSwitchRegisterReader EthPortInfoSwitchKSZ8863gpio::spi{SpiSwitchChip::Ksz8863, log};

namespace {

constexpr unsigned char Speed100Bit = 0x04;
constexpr unsigned char FullDuplexBit = 0x02;

} // namespace

EthPortInfoSwitchKSZ8863gpio::EthPortInfoSwitchKSZ8863gpio(
    unsigned int deviceIndex, unsigned int portIndex, const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
{
    switch (portIndex) {
    case 1:
        regStatus = 0x1F;
        break;
    case 2:
        regStatus = 0x2F;
        break;
    default:
        throw ArgumentException::Create("port", portIndex, "unsupported");
    }

    // Boards whose kernel has no sysfs GPIO name the line on the character
    // device; every other board keeps its value file exactly as before.
    const BasicString lineKey = BasicString::Format("path.{0}.{1}.linkLine", deviceIndex, portIndex);
    if (settings.HasSetting(lineKey)) {
        const BasicString chipKey = BasicString::Format("path.{0}.{1}.linkChip", deviceIndex, portIndex);
        linkLine.emplace(settings.HasSetting(chipKey) ? settings.GetSetting(chipKey) : BasicString(),
                         settings.GetSetting(lineKey));
    } else {
        linkGpioPath = settings.GetSetting(BasicString::Format("path.{0}.{1}.link", deviceIndex, portIndex));
        fdLinkGpio = gpioAccess.Open(linkGpioPath, O_RDONLY);
    }

    // An earlier port opened the device and checked the chip; that holds even
    // when its check failed, and this port is then built without one.
    spi.Open(settings, deviceIndex);
}

EthPortInfoSwitchKSZ8863gpio::~EthPortInfoSwitchKSZ8863gpio()
{
    gpioAccess.Close(fdLinkGpio, linkGpioPath);
    // Closes the device for every port of the class; the ports are destroyed
    // together with the device table.
    spi.Close();
}

LinkState EthPortInfoSwitchKSZ8863gpio::GetPortLinkState() const
{
    bool linkUp = false;
    if (!(linkLine ? linkLine->Read(linkUp) : gpioAccess.Read(fdLinkGpio, linkGpioPath, linkUp))) {
        return LinkState::Unknown;
    }
    // The link line is active high.
    return linkUp ? LinkState::Up : LinkState::Down;
}

bool EthPortInfoSwitchKSZ8863gpio::ReadStatus(unsigned char& status) const
{
    // Without a link the switch is not asked at all.
    return GetPortLinkState() == LinkState::Up && spi.ReadRegister(regStatus, status);
}

LinkSpeed EthPortInfoSwitchKSZ8863gpio::GetPortLinkSpeed() const
{
    unsigned char status = 0;
    if (!ReadStatus(status)) {
        return LinkSpeed::Unknown;
    }
    // No gigabit ports on this switch.
    return (status & Speed100Bit) != 0 ? LinkSpeed::Speed100 : LinkSpeed::Speed10;
}

LinkDuplex EthPortInfoSwitchKSZ8863gpio::GetPortLinkDuplex() const
{
    unsigned char status = 0;
    if (!ReadStatus(status)) {
        return LinkDuplex::Unknown;
    }
    return (status & FullDuplexBit) != 0 ? LinkDuplex::Full : LinkDuplex::Half;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
