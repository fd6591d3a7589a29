// IP configuration: SetSubnetMask rewrites /etc/network/interfaces through
// its temporary file; the bare pattern does the same file work directly —
// read line by line, write the temporary file, the same File::Copy and
// File::Delete. Files of 10, 100 and 1,000 lines on the sandbox's tmpfs.
#include "AllocationCounter.hpp"
#include "BenchRig.hpp"
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include <Zel/System/Commons/Io/File.hpp>

#include <fmt/format.h>

#include <fstream>
#include <string>

namespace Zel::Bench {

namespace {

const char* const interfacesFile = "/etc/network/interfaces";
const char* const temporaryFile = "/etc/network/interfaces.tmp";

// eth0's block first, then blocks of other interfaces up to `lines` lines.
void EnsureInterfacesFile(int lines)
{
    static int current = 0;
    if (current == lines) {
        return;
    }
    std::string text = "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                       "    address 192.168.1.10\n    netmask 255.255.255.0\n    gateway 192.168.1.1\n\n";
    int written = 9;
    for (int block = 2; written + 5 <= lines; ++block, written += 5) {
        text += fmt::format("auto eth{0}\niface eth{0} inet static\n    address 10.{1}.{2}.1\n"
                            "    netmask 255.255.255.0\n\n",
                            block, block / 256, block % 256);
    }
    for (; written < lines; ++written) {
        text += "# spare line\n";
    }
    std::ofstream(interfacesFile, std::ios::trunc) << text;
    current = lines;
}

void SetSubnetMaskLibrary(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    EnsureInterfacesFile(static_cast<int>(state.range(0)));
    auto& ipConfig = Rig().ipConfig;
    const Zel::System::Commons::BasicString mask("255.255.255.0");
    if (ipConfig.SetSubnetMask(1, mask) != Zel::Hardware::Nim::AccessErrorCode::Success) {
        state.SkipWithError("SetSubnetMask failed");
        return;
    }
    Measure(
        state, [&] { benchmark::DoNotOptimize(ipConfig.SetSubnetMask(1, mask)); }, std::to_string(state.range(0)));
}

void SetSubnetMaskBare(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    EnsureInterfacesFile(static_cast<int>(state.range(0)));
    const Zel::System::Commons::BasicString source(temporaryFile);
    const Zel::System::Commons::BasicString destination(interfacesFile);
    Measure(state, [&] {
        std::ifstream input(interfacesFile);
        std::ofstream output(temporaryFile, std::ios::out | std::ios::trunc);
        std::string line;
        while (std::getline(input, line)) {
            output << line << '\n';
        }
        output.close();
        input.close();
        Zel::System::Commons::Io::File::Copy(source, destination, true, true);
        Zel::System::Commons::Io::File::Delete(source);
    }, std::to_string(state.range(0)));
}

} // namespace

ZEL_BENCH_AT_START(Register("ipconfig/set_netmask/lib", SetSubnetMaskLibrary)->Arg(10)->Arg(100)->Arg(1000))
ZEL_BENCH_AT_START(Register("ipconfig/set_netmask/bare", SetSubnetMaskBare)->Arg(10)->Arg(100)->Arg(1000))

ZEL_BENCH_AT_START(AddPair({"IpConfigModule::SetSubnetMask, 10-line file", "ipconfig/set_netmask/lib/10",
                            "ipconfig/set_netmask/bare/10", 1.3, std::nullopt, std::nullopt, "≤ 1.3"}))
ZEL_BENCH_AT_START(AddPair({"IpConfigModule::SetSubnetMask, 100-line file", "ipconfig/set_netmask/lib/100",
                            "ipconfig/set_netmask/bare/100", 1.3, std::nullopt, std::nullopt, "≤ 1.3"}))
ZEL_BENCH_AT_START(AddPair({"IpConfigModule::SetSubnetMask, 1,000-line file", "ipconfig/set_netmask/lib/1000",
                            "ipconfig/set_netmask/bare/1000", 1.3, std::nullopt, std::nullopt, "≤ 1.3"}))
ZEL_BENCH_AT_START(AddLinearGroup({"SetSubnetMask against the file's lines",
                                   {10, 100, 1000},
                                   {"ipconfig/set_netmask/lib/10", "ipconfig/set_netmask/lib/100",
                                    "ipconfig/set_netmask/lib/1000"},
                                   {"ipconfig/set_netmask/bare/10", "ipconfig/set_netmask/bare/100",
                                    "ipconfig/set_netmask/bare/1000"}}))

} // namespace Zel::Bench
