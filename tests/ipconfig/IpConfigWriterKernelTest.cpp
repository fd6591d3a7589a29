// Writers of /etc/network/interfaces against kills and power cuts, and on
// files behind links, bind mounts and read-only mounts, inside the network
// sandbox (a private tmpfs over /etc/network; its mounts are the sandbox's
// own). Writers against each other are the stress test's: each write locks
// through a descriptor of its own, so threads contend as processes do.
#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"
#include "PowerCutDisk.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"
#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::Hardware::Nim::AccessErrorCode;
using namespace Zel::Test;
namespace fs = std::filesystem;

const std::vector<Zel::System::Commons::BasicString> parameterOrder{"address", "netmask", "gateway", "dns-nameservers"};

const std::string networkDirectory = "/etc/network";
const std::string interfacesFile = "/etc/network/interfaces";

// Eight ports with all four values, each followed by the route lines a field
// file carries: 300 lines.
std::string BoardFile(const std::string& eth0Address = "10.0.0.5")
{
    std::string text = "# Controller ports\nauto lo\niface lo inet loopback\n\n";
    for (int port = 0; port < 8; ++port) {
        text +=
            fmt::format("allow-hotplug eth{0}\niface eth{0} inet static\n    address {1}\n"
                        "    netmask 255.255.0.0\n    gateway 10.{0}.0.1\n    dns-nameservers 10.{0}.0.53 9.9.9.9\n",
                        port, port == 0 ? eth0Address : fmt::format("10.{0}.0.5", port));
        for (int route = 0; route < 30; ++route) {
            text += fmt::format("    up ip route add 172.{0}.{1}.0/24 via 10.{0}.0.1\n", port, route);
        }
        text += "\n";
    }
    return text;
}

// The names in the directory, sorted, with a blank between them.
std::string Entries(const std::string& directory)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return fmt::format("{}", fmt::join(names, " "));
}

// "<mode> <uid>:<gid>" in octal and decimal.
std::string ModeAndOwner(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) != 0 ? "none"
                                            : fmt::format("{:o} {}:{}", info.st_mode & 07777, info.st_uid, info.st_gid);
}

// Mounts, links and files of an earlier test go.
void CleanNetworkDirectory()
{
    Run("awk '$5 ~ \"^/etc/network/.\" {print $5}' /proc/self/mountinfo | sort -r | xargs -r umount;"
        "chattr -i /etc/network/data/interfaces 2>/dev/null; rm -rf /etc/network/* 2>/dev/null");
}

class IpConfigWriters : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        CleanNetworkDirectory();
    }
    void TearDown() override { CleanNetworkDirectory(); }

    LogCapture quiet{3};
    IpConfigFileAccess access{parameterOrder};
};

// A writer killed anywhere leaves the old or the new file, whole, with its
// mode and owner, and at most its own temporary file, which the next write
// takes over. Readers meanwhile see whole files only.
TEST_F(IpConfigWriters, KilledWritersLeaveAWholeFileAndNothingElse)
{
    const std::string oldContent = BoardFile("10.0.0.1");
    const std::string newContent = BoardFile("172.16.254.254"); // lengths differ: a cut file matches neither
    WriteFile(interfacesFile, oldContent);
    ASSERT_EQ(0, ::chmod(interfacesFile.c_str(), 0640));
    ASSERT_EQ(0, ::chown(interfacesFile.c_str(), 4321, 4322));
    const auto wholeWithModeAndOwner = [&] {
        const std::string content = ReadFile(interfacesFile);
        return (content == oldContent || content == newContent) && ModeAndOwner(interfacesFile) == "640 4321:4322";
    };

    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    int kills = 0;
    int killsDuringFileWork = 0; // the temporary file stood when the kill came
    while (killsDuringFileWork < 200 && std::chrono::steady_clock::now() < deadline) {
        int progress[2];
        ASSERT_EQ(0, ::pipe(progress));
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            for (int i = 0;; ++i) {
                if (access.WriteIpPara("eth0", "address", i % 2 == 0 ? "172.16.254.254" : "10.0.0.1") != 0 ||
                    ::write(progress[1], "w", 1) != 1) {
                    _exit(1);
                }
            }
        }
        ::close(progress[1]);
        // Once a write is done (and has taken over any temporary file left
        // before), wait for the next one to create its temporary file, then
        // kill the writer a random stretch into that write, which takes some
        // hundred microseconds, reading the file meanwhile.
        char done = 0; // a writer that fails ends, closing the pipe
        ASSERT_EQ(1, ::read(progress[0], &done, 1));
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!fs::exists(interfacesFile + ".tmp") && std::chrono::steady_clock::now() < giveUp) {
        }
        const auto killAt = std::chrono::steady_clock::now() +
            std::chrono::microseconds(std::uniform_int_distribution<int>(0, 400)(random));
        do {
            ASSERT_TRUE(wholeWithModeAndOwner()) << "kill " << kills << ", while the writer runs";
        } while (std::chrono::steady_clock::now() < killAt);
        ASSERT_EQ(0, ::kill(writer, SIGKILL));
        int status = 0;
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        ::close(progress[0]);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself: " << status;
        ++kills;
        const std::string entries = Entries(networkDirectory);
        killsDuringFileWork += entries != "interfaces" ? 1 : 0;
        ASSERT_TRUE(wholeWithModeAndOwner()) << "kill " << kills;
        ASSERT_TRUE(entries == "interfaces" || entries == "interfaces interfaces.tmp")
            << "kill " << kills << ": " << entries;
    }
    RecordProperty("figures", fmt::format("{} kills, {} during the file work", kills, killsDuringFileWork));
    EXPECT_GE(killsDuringFileWork, 200) << "of " << kills << " kills";

    ASSERT_EQ(0, access.WriteIpPara("eth0", "address", "172.16.254.254"));
    EXPECT_TRUE(wholeWithModeAndOwner());
    EXPECT_EQ(newContent, ReadFile(interfacesFile));
    EXPECT_EQ("interfaces", Entries(networkDirectory));
}

// The real file is /etc/network/data/interfaces, mode 0640, owner 4321:4322;
// each case of cases/placement.cases has its set-up here, by shell in
// /etc/network: how /etc/network/interfaces reaches the real file and what
// is in the way. Every case writes eth0's netmask.
const std::map<std::string, std::string> placements = {
    {"absolute_link", "ln -s /etc/network/data/interfaces interfaces"},
    {"relative_link_to_absolute_link",
     "ln -s /etc/network/data/interfaces data/current && ln -s data/current interfaces"},
    {"bind_mounted_file", "touch interfaces && mount --bind data/interfaces interfaces"},
    {"read_only_bind_mounted_file",
     "touch interfaces && mount --bind data/interfaces interfaces && mount -o remount,ro,bind interfaces"},
    {"link_into_read_only_directory",
     "ln -s data/interfaces interfaces && mount --bind data data && mount -o remount,ro,bind data"},
    {"immutable_file_refuses_the_good_temporary_file", "ln -s data/interfaces interfaces && chattr +i data/interfaces"},
    {"temporary_file_is_a_directory", "ln -s data/interfaces interfaces && mkdir data/interfaces.tmp"},
    {"temporary_file_on_a_full_disk", "ln -s data/interfaces interfaces && ln -s /dev/full data/interfaces.tmp"},
    {"lock_held_by_another_writer", "ln -s data/interfaces interfaces"},
    // data/ moves onto a 64 KiB file system, which is then filled; the file is
    // padded with a comment to one byte short of its last page's end, so that
    // one byte more fits and two need another page.
    {"bind_mounted_file_on_a_full_file_system",
     "cp -p data/interfaces . && mount -t tmpfs -o size=64k small data && mv interfaces data/ && touch interfaces && "
     "mount --bind data/interfaces interfaces && s=$(stat -c %s interfaces) && "
     "printf \"#%$(((8189 - s % 4096) % 4096))s\\n\" '' >>interfaces && ! cat /dev/zero >data/filler 2>/dev/null"},
    {"bind_mounted_file_rewritten_shorter",
     "sed -i '0,/netmask 255.255.0.0/s//& # the office mask, set by hand/' data/interfaces && touch interfaces && "
     "mount --bind data/interfaces interfaces"},
};

class IpConfigPlacement : public IpConfigWriters, public ::testing::WithParamInterface<Case> {};

TEST_P(IpConfigPlacement, WriteReachesTheRealFileOrFailsAndSaysWhy)
{
    const Case& c = GetParam();
    const int result = std::stoi(c["result"]);
    const std::string realFile = "/etc/network/data/interfaces";
    ASSERT_TRUE(fs::create_directory("/etc/network/data"));
    WriteFile(realFile, BoardFile());
    ASSERT_EQ(0, ::chmod(realFile.c_str(), 0640));
    ASSERT_EQ(0, ::chown(realFile.c_str(), 4321, 4322));
    ASSERT_EQ(0, Zel::Test::Run("cd /etc/network && " + placements.at(c.name))) << placements.at(c.name);
    // eth0's netmask line, as the set-up left it, is the one replaced.
    const std::string board = ReadFile(realFile);
    std::string changed = board;
    const std::size_t netmask = changed.find("netmask ");
    changed.replace(netmask, changed.find('\n', netmask) - netmask, "netmask 255.255.255.0");
    const bool link = fs::is_symlink(interfacesFile);
    const int holder = ::open("/etc/network/data", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_TRUE(!c.Has("lock held") || ::flock(holder, LOCK_EX) == 0);

    LogCapture capture(5);
    const IpConfigFileAccess access(parameterOrder, interfacesFile, std::chrono::milliseconds(100));
    EXPECT_EQ(result, access.WriteIpPara("eth0", "netmask", "255.255.255.0"));
    EXPECT_EQ(c["messages"], capture.Text());
    EXPECT_EQ(result == 0 ? changed : board, ReadFile(realFile));
    EXPECT_EQ(ReadFile(realFile), ReadFile(interfacesFile));
    EXPECT_EQ(link, fs::is_symlink(interfacesFile));
    EXPECT_EQ("640 4321:4322", ModeAndOwner(realFile));
    EXPECT_EQ(c["left in data"], Entries("/etc/network/data") + "\n");
    EXPECT_EQ("data interfaces", Entries(networkDirectory));
    ::close(holder);
}

INSTANTIATE_TEST_SUITE_P(Files, IpConfigPlacement, ::testing::ValuesIn(Cases("placement.cases")),
                         [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });

#ifdef ZEL_NIMHOST
// Power cuts, made the way file-system testers make them (PowerCutDisk): the
// interfaces file lies on ext4 behind dm-flakey, reached by a link (renamed
// over) or a bind mount (rewritten in place), and the power goes at a random
// point of three writers' work: nimhost's ip set (eth0's address), the
// module's setter (eth1's gateway) and nimhost's metrics. After each cut and
// the remount, which replays the journal as a boot does, the file is whole,
// holds every change a writer had confirmed, keeps its mode and owner and has
// nothing beside it but interfaces.tmp; a confirmed metrics file is there,
// whole. A rewrite in place is not atomic: those rows cut only once the
// writers are done.
std::string Value(int network, int index)
{
    return fmt::format("10.{}.{}.{}", network, index / 250, index % 250 + 1);
}

// The index of the value of `key` in the block of `interfaceName`; -1 for none.
int IndexOf(const std::string& content, const std::string& interfaceName, const std::string& key)
{
    const std::size_t header = content.find("iface " + interfaceName);
    const std::size_t at = header == std::string::npos ? header : content.find("    " + key + " 10.", header);
    int high = 0, low = 0;
    return at != std::string::npos && std::sscanf(content.c_str() + at, "%*s 10.%*d.%d.%d", &high, &low) == 2
        ? high * 250 + low - 1
        : -1;
}

std::string Board(int address, int gateway)
{
    std::string board = BoardFile(Value(0, address));
    return board.replace(board.find("gateway 10.1.0.1\n"), 16, "gateway " + Value(1, gateway));
}

// Forks a writer that makes `count` writes and tells each success with the
// byte `name` on `acks`; it leads a process group of its own, so that one
// kill ends it with the programs it runs.
pid_t StartWriter(int acks, char name, int count, const std::function<bool(int)>& write)
{
    const pid_t writer = ::fork();
    if (writer == 0) {
        ::setpgid(0, 0);
        for (int i = 1; i <= count; ++i) {
            if (!write(i) || ::write(acks, &name, 1) != 1) {
                _exit(1);
            }
        }
        _exit(0);
    }
    ::setpgid(writer, writer); // also here, so that no kill can come before it
    return writer;
}

class IpConfigPowerCut : public IpConfigWriters, public ::testing::WithParamInterface<Case> {};

TEST_P(IpConfigPowerCut, AfterEachCutTheFileIsWholeWithEveryConfirmedChange)
{
    const Case& c = GetParam();
    const ScratchDirectory scratch("powercut");
    const std::string disk = scratch.Path("disk"), file = disk + "/network/interfaces",
                      metrics = disk + "/textfile/nim.prom", nimhost = ZEL_NIMHOST " --config " ZEL_BOARD;
    const PowerCutDisk power(disk, c.Lines("mount options").empty() ? "" : c.Lines("mount options")[0]);
    fs::create_directories(disk + "/network");
    fs::create_directories(disk + "/textfile");
    const auto startFile = [&] {
        WriteFile(file, Board(4, 0));
        ASSERT_EQ(0, ::chmod(file.c_str(), 0640));
        ASSERT_EQ(0, ::chown(file.c_str(), 4321, 4322));
    };
    startFile();
    // Renamed over through a link or rewritten in place through a bind mount,
    // each made for one round: the disk's file system cannot go while a bind
    // mount holds it.
    const bool inPlace = c.Has("in place");
    const auto reach = [&] {
        return inPlace ? ::mount(file.c_str(), interfacesFile.c_str(), nullptr, MS_BIND, nullptr)
                       : ::symlink(file.c_str(), interfacesFile.c_str());
    };
    const auto leave = [&] {
        return inPlace ? ::umount2(interfacesFile.c_str(), 0) : ::unlink(interfacesFile.c_str());
    };
    if (inPlace) {
        WriteFile(interfacesFile, "");
    }
    StandInEthernetInfo ethernet{{"eth0", "eth1"}, StandInEthernetInfo::BadNumber::Throws};
    Zel::Hardware::Commons::Modules::HardwareModuleProvider provider;
    provider.AddHardwareModule(ethernet);
    Zel::Hardware::Modules::Nim::Linux::IpConfigModule ipConfig;
    ipConfig.SetupSettings({}, provider);

    ASSERT_EQ(0, ::prctl(PR_SET_CHILD_SUBREAPER, 1));
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const int cuts = std::stoi(c["cuts"]);
    int address = 4, gateway = 0, torn = 0, lost = 0;
    for (int cut = 1; cut <= cuts; ++cut) {
        fs::remove(metrics);
        ::sync();
        ASSERT_EQ(0, reach());
        // nimhost, a program of its own, starts in half a second; the module's
        // setter writes many times more often in that time.
        std::uniform_int_distribution<int> once(0, 1), often(0, 4);
        const int planned[] = {once(random), often(random), once(random)};
        int acks[2];
        ASSERT_EQ(0, ::pipe(acks));
        const pid_t writers[] = {
            StartWriter(acks[1], 'a', planned[0],
                        [&](int i) {
                            return Zel::Test::Run(nimhost + " ip set 1 address " + Value(0, address + i) +
                                                  " >/dev/null") == 0;
                        }),
            StartWriter(acks[1], 'g', planned[1],
                        [&](int i) {
                            return ipConfig.SetDefaultGateway(2, Value(1, gateway + i)) == AccessErrorCode::Success;
                        }),
            StartWriter(acks[1], 'm', planned[2],
                        [&](int) { return Zel::Test::Run(nimhost + " metrics --output " + metrics) == 0; }),
        };
        ::close(acks[1]);
        // The power goes after a random number of confirmed writes and a
        // random moment more; a write confirmed after the last count is not
        // asked for.
        const int all = planned[0] + planned[1] + planned[2];
        std::map<char, int> confirmed;
        char writer = 0;
        for (int n = inPlace ? all : std::uniform_int_distribution<int>(0, all)(random);
             n > 0 && ::read(acks[0], &writer, 1) == 1; --n) {
            ++confirmed[writer];
        }
        std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 5000)(random)));
        power.Cut();
        // Every process of a writer's group reaped (the programs it started
        // become this one's children when it dies) has let go of the disk.
        for (const pid_t pid : writers) {
            ::kill(-pid, SIGKILL);
            for (int status = 0, reaped = 0; (reaped = ::waitpid(-pid, &status, 0)) > 0;) {
                EXPECT_TRUE(reaped != pid || status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL))
                    << "cut " << cut << ": a writer failed before the power went";
            }
        }
        ::close(acks[0]);
        ASSERT_EQ(0, leave());
        power.Remount();

        const std::string content = ReadFile(file), entries = Entries(disk + "/network");
        const int newAddress = IndexOf(content, "eth0", "address"), newGateway = IndexOf(content, "eth1", "gateway");
        // Whole metrics end with the line of the collection's duration.
        const std::string text = fs::exists(metrics) ? ReadFile(metrics) : "";
        const bool metricsWhole = !fs::exists(metrics) ||
            (text.rfind("# HELP", 0) == 0 && text.back() == '\n' && ModeAndOwner(metrics).rfind("644 ", 0) == 0 &&
             text.find("\nnim_collection_duration_seconds ") == text.rfind('\n', text.size() - 2));
        const bool whole = content == Board(newAddress, newGateway) && ModeAndOwner(file) == "640 4321:4322" &&
            (entries == "interfaces" || entries == "interfaces interfaces.tmp") && metricsWhole;
        const bool kept = newAddress >= address + confirmed['a'] && newGateway >= gateway + confirmed['g'] &&
            (confirmed['m'] == 0 || fs::exists(metrics));
        EXPECT_TRUE(whole && kept) << "cut " << cut << (whole ? "" : ": torn") << (kept ? "" : ": lost") << ", "
                                   << content.size() << " bytes and " << entries << " left, " << text.size()
                                   << " bytes of metrics";
        torn += whole ? 0 : 1;
        lost += kept ? 0 : 1;
        // A torn file is made whole again, so that later cuts count on their own.
        address = whole ? newAddress : 4;
        gateway = whole ? newGateway : 0;
        if (!whole) {
            startFile();
        }
    }
    std::cout << fmt::format("{}: {} cuts, {} torn, {} with a confirmed write lost\n", c.name, cuts, torn, lost);
}

INSTANTIATE_TEST_SUITE_P(Disks, IpConfigPowerCut, ::testing::ValuesIn(Cases("power-cut.cases")),
                         [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });
#endif

} // namespace
