#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"
#include "Modules/Nim/Linux/Internal/PortFileReader.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port read from a network interface's sysfs attribute files
// ("path.{device}.{port}.sysFile" is the directory prefix, ending in "/").
// operstate, speed and duplex are opened once at set-up (InvalidOperationException
// "Could not open '{0}' for read." if one is missing; those opened before it
// stay open) and read afresh with pread on every query; a failed read logs
// one error and answers unknown. Queries are const and need no lock.
class EthPortInfoSysFile : public IEthPortInfo,
                           private Zel::System::Commons::Logging::Loggable<EthPortInfoSysFile, false, false> {
public:
    EthPortInfoSysFile(unsigned int deviceIndex, unsigned int portIndex,
                       const Zel::Hardware::Commons::Modules::ModuleSettings& settings);
    ~EthPortInfoSysFile() override;
    EthPortInfoSysFile(const EthPortInfoSysFile&) = delete;
    EthPortInfoSysFile& operator=(const EthPortInfoSysFile&) = delete;

    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;

private:
    PortFileReader files;
    BasicString sysFilePath;
    // Raw: a constructor that fails on a later file leaves the earlier ones
    // open, as the controller's runtime always has (set-up fails then).
    int fdOperstate = -1;
    int fdSpeed = -1;
    int fdDuplex = -1;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
