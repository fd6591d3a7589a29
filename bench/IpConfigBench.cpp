// IP configuration: SetSubnetMask rewrites /etc/network/interfaces through
// its temporary file; the bare pattern does the same file work directly —
// resolve links, lock the directory, read line by line, write the temporary
// file, give it the file's mode and owner, flush it, rename it over the file
// and flush the directory. Files of 10, 100 and 1,000 lines on the sandbox's
// tmpfs; the lock is free, as it is but for concurrent writers.
#include "AllocationCounter.hpp"
#include "BenchRig.hpp"
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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
    Measure(
        state,
        [&] {
            std::free(::realpath(interfacesFile, nullptr));
            const int directory = ::open("/etc/network", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            int done = ::flock(directory, LOCK_EX | LOCK_NB);
            std::ifstream input(interfacesFile);
            const int output = ::open(temporaryFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            std::string content;
            std::string line;
            while (std::getline(input, line)) {
                content.append(line).push_back('\n');
            }
            input.close();
            benchmark::DoNotOptimize(::pwrite(output, content.data(), content.size(), 0));
            struct stat info {};
            done |= ::stat(interfacesFile, &info);
            done |= ::fchmod(output, info.st_mode & 07777);
            done |= ::fchown(output, info.st_uid, info.st_gid);
            done |= ::fsync(output);
            done |= ::close(output);
            done |= ::rename(temporaryFile, interfacesFile);
            done |= ::fsync(directory);
            done |= ::close(directory);
            benchmark::DoNotOptimize(done);
        },
        std::to_string(state.range(0)));
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
ZEL_BENCH_AT_START(AddLinearGroup(
    {"SetSubnetMask against the file's lines",
     {10, 100, 1000},
     {"ipconfig/set_netmask/lib/10", "ipconfig/set_netmask/lib/100", "ipconfig/set_netmask/lib/1000"},
     {"ipconfig/set_netmask/bare/10", "ipconfig/set_netmask/bare/100", "ipconfig/set_netmask/bare/1000"}}))

} // namespace Zel::Bench
