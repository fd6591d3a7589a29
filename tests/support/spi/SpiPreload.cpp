// The SPI emulator as an LD_PRELOAD library, for programs that are not test
// executables (nimhost). ZEL_SPI_NODES names the nodes, blank-separated, each
// as chip:path[:register=value]... in hex; every path is a file that exists,
// so that the kernel checks its owner and mode when the program opens it:
//
//   ZEL_SPI_NODES="ksz8794:/tmp/board/spidev1.0:1e=20:1f=06 ksz8863:/tmp/board/spidev2.0:1f=06"
#include "SpiEmulator.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Zel::Test::SpiDevice;
using Zel::Test::SpiEmulator;

__attribute__((constructor)) void EmulateNamedNodes()
{
    // Reachable till the end, so a leak checker does not count them.
    static std::vector<std::unique_ptr<SpiDevice>> devices;
    const char* named = std::getenv("ZEL_SPI_NODES");
    std::istringstream nodes(named != nullptr ? named : "");
    for (std::string node; nodes >> node;) {
        std::istringstream fields(node);
        std::string chip, path, assignment;
        std::getline(fields, chip, ':');
        std::getline(fields, path, ':');
        SpiEmulator emulator = chip == "ksz8863" ? SpiEmulator::Ksz8863() : SpiEmulator::Ksz8794();
        try {
            if (chip != "ksz8794" && chip != "ksz8863") {
                throw std::invalid_argument(chip);
            }
            while (std::getline(fields, assignment, ':')) {
                const auto value = std::stoul(assignment.substr(assignment.find('=') + 1), nullptr, 16);
                emulator.Register(static_cast<unsigned int>(std::stoul(assignment, nullptr, 16)),
                                  static_cast<std::uint8_t>(value));
            }
        } catch (const std::exception&) {
            std::fprintf(stderr, "ZEL_SPI_NODES: '%s' is not chip:path[:register=value]...\n", node.c_str());
            std::_Exit(2);
        }
        devices.emplace_back(new SpiDevice(emulator.BuildOnFile(path)));
    }
}

} // namespace
