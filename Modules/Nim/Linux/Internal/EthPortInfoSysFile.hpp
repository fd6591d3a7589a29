#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port read from a network interface's sysfs attribute files
// ("path.{device}.{port}.sysFile" is the directory prefix, ending in "/").
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
    unsigned int deviceIndex;
    unsigned int portIndex;
    BasicString sysFilePath;
    int fdOperstate = -1;
    int fdSpeed = -1;
    int fdDuplex = -1;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
