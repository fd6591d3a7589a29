// Eight threads ask every read-only question of every module at once — ports
// of every kind, interface names and MAC addresses, IP status, the interface
// list, registry lookups while another thread registers — and every answer
// must equal the one a single thread got before. Built with ThreadSanitizer
// (preset tsan) this also proves the queries free of data races. A second
// group races the first calls of many log channels.
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "SpiEmulator.hpp"

#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::Hardware::Modules::Nim::Linux::NetworkComponentRegistrationModule;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Logging::ILogSink;
using Zel::System::Commons::Logging::LogAdapter;
using Zel::System::Commons::Logging::LogManager;

constexpr int queryThreads = 8;
constexpr int iterationsPerThread = 120;

// Counts messages per level without keeping them, so that hundreds of
// thousands of trace lines cost no memory; keeps the first unexpected warning
// or error. qemu-user implements no SIOCETHTOOL, so under it the I210 port's
// speed and duplex queries fail with ENOSYS (38) on every call: those two
// messages are counted apart, they are the emulator's, not the library's.
class CountingSink : public ILogSink {
public:
    void Write(int level, std::string_view, std::string_view text) override
    {
        counts[static_cast<std::size_t>(level >= 0 && level < 10 ? level : 9)].fetch_add(1);
        if (level > 5) {
            return;
        }
        if (text == "Error GetPortLinkSpeed() for device 2, port 1 (eth1): errno 38" ||
            text == "Error GetPortLinkDuplex() for device 2, port 1 (eth1): errno 38") {
            emulatorErrors.fetch_add(1);
            return;
        }
        unexpected.fetch_add(1);
        std::lock_guard<std::mutex> guard(lock);
        if (firstProblem.empty()) {
            firstProblem = std::string(text);
        }
    }
    std::size_t Count(int level) const { return counts[static_cast<std::size_t>(level)].load(); }
    std::size_t Unexpected() const { return unexpected.load(); }
    std::size_t EmulatorErrors() const { return emulatorErrors.load(); }
    std::string FirstProblem() const
    {
        std::lock_guard<std::mutex> guard(lock);
        return firstProblem;
    }

private:
    std::array<std::atomic<std::size_t>, 10> counts{};
    std::atomic<std::size_t> unexpected{0};
    std::atomic<std::size_t> emulatorErrors{0};
    mutable std::mutex lock;
    std::string firstProblem;
};

// Installs a sink for one test and puts the test main's in-memory sink back.
class SinkScope {
public:
    explicit SinkScope(std::shared_ptr<ILogSink> sink)
    {
        AppDomain::GetCurrentSingleton<LogManager>().SetSink(std::move(sink));
    }
    ~SinkScope()
    {
        // The test main owns its sink; the manager only borrows it back.
        std::shared_ptr<ILogSink> borrowed(&Zel::Test::TestLog(), [](ILogSink*) {});
        AppDomain::GetCurrentSingleton<LogManager>().SetSink(borrowed);
    }
};

class ScratchDirectory {
public:
    ScratchDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-stress-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        root = pattern;
    }
    ~ScratchDirectory() { std::filesystem::remove_all(root); }
    std::string Path(const std::string& name) const { return root + "/" + name; }
    void Write(const std::string& name, const std::string& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary) << text;
    }

private:
    std::string root;
};

// Everything a reader can ask the modules, gathered in one comparable value.
struct Answers {
    unsigned int deviceCount = 0;
    std::vector<unsigned int> portCounts;
    std::vector<std::string> names, macs, publicNames;
    std::vector<int> types;
    std::vector<std::vector<std::tuple<int, int, int, std::string>>> ports; // state, speed, duplex, public name
    std::vector<std::string> interfaceList;
    std::vector<std::string> ipAddresses, subnetMasks, gateways, deviceIpAddresses;
    std::vector<unsigned int> registryLookups;
    std::vector<std::string> componentsOnInterface1;

    bool operator==(const Answers& other) const
    {
        return std::tie(deviceCount, portCounts, names, macs, publicNames, types, ports, interfaceList, ipAddresses,
                        subnetMasks, gateways, deviceIpAddresses, registryLookups, componentsOnInterface1) ==
               std::tie(other.deviceCount, other.portCounts, other.names, other.macs, other.publicNames, other.types,
                        other.ports, other.interfaceList, other.ipAddresses, other.subnetMasks, other.gateways,
                        other.deviceIpAddresses, other.registryLookups, other.componentsOnInterface1);
    }

    std::string Describe() const
    {
        std::ostringstream out;
        for (unsigned int d = 0; d < deviceCount; ++d) {
            out << "device " << d + 1 << " " << names[d] << " " << macs[d] << " '" << publicNames[d] << "' type "
                << types[d] << " ip " << ipAddresses[d] << "/" << subnetMasks[d] << " gw " << gateways[d] << ":";
            for (const auto& [state, speed, duplex, name] : ports[d]) {
                out << " [" << state << "," << speed << "," << duplex << ",'" << name << "']";
            }
            out << "\n";
        }
        out << "interfaces:";
        for (const auto& name : interfaceList) {
            out << " " << name;
        }
        out << "\nregistry:";
        for (auto id : registryLookups) {
            out << " " << id;
        }
        return out.str();
    }
};

const std::vector<std::string> stableComponents = {"opcua", "plc-runtime", "web"};

// The caller-side lock the registry asks for: the module has no lock of its
// own and its users serialise themselves (readers shared, the writer alone).
std::shared_mutex registryLock;

class StressRig {
public:
    StressRig()
        : spi8794(Zel::Test::SpiEmulator::Ksz8794()
                      .Register(0x1E, 0x20)
                      .Register(0x1F, 0x06)
                      .Register(0x2E, 0x00)
                      .Register(0x2F, 0x03)
                      .Build(scratch.Path("spidev1.0"))),
          spi8863(Zel::Test::SpiEmulator::Ksz8863().Register(0x1F, 0x06).Register(0x2F, 0x00).Build(
              scratch.Path("spidev2.0")))
    {
        scratch.Write("sys/operstate", "up\n");
        scratch.Write("sys/speed", "1000\n");
        scratch.Write("sys/duplex", "full\n");
        scratch.Write("ksz/1/speed", "100\n");
        scratch.Write("ksz/1/duplex", "full-duplex\n");
        scratch.Write("ksz/2/speed", "unlinked");
        scratch.Write("ksz/2/duplex", "unlinked");
        scratch.Write("gpio/1/value", "1\n");
        scratch.Write("gpio/2/value", "0\n");

        ModuleSettings settings;
        settings.AddSetting("mandatoryInterfaces", "7");
        settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
        settings.AddSetting("path.3.1.sysFile", scratch.Path("sys/"));
        for (int port = 1; port <= 2; ++port) {
            settings.AddSetting(BasicString::Format("path.4.{0}.speed", port), scratch.Path(fmt::format("ksz/{}/speed", port)));
            settings.AddSetting(BasicString::Format("path.4.{0}.duplex", port),
                                scratch.Path(fmt::format("ksz/{}/duplex", port)));
            settings.AddSetting(BasicString::Format("path.6.{0}.link", port), scratch.Path(fmt::format("gpio/{}/value", port)));
        }
        settings.AddSetting("path.5.spi", spi8794.Path());
        settings.AddSetting("path.6.spi", spi8863.Path());
        SettingField table("interfaces");
        table.AddLine({"1", "Eth0 sysfs", "eth0", "1", "sysFile", "X1", "Ethernet"});
        table.AddLine({"2", "Eth1 I210", "eth1", "1", "i210Driver", "X2", "Ethernet"});
        table.AddLine({"3", "Files", "eth0", "1", "sysFile", "F1", "Ethernet"});
        table.AddLine({"4", "KSZ8794 files", "eth0", "2", "switchKSZ8794", "A1; A2", "Ethernet"});
        table.AddLine({"5", "KSZ8794 SPI", "eth0", "2", "switchKSZ8794spi", "B1;B2", "Ethernet"});
        table.AddLine({"6", "KSZ8863", "eth1", "2", "switchKSZ8863gpio", "C1;C2", "Ethernet"});
        table.AddLine({"7", "Service", "eth1", "1", "unsupported", "", "Service"});
        settings.AddSettingField("interfaces", table);

        ethernet.SetupSettings(settings, provider);
        provider.AddHardwareModule(ethernet);
        ipStatus.SetupSettings(ModuleSettings(), provider);
        registry.SetupSettings(ModuleSettings(), provider);
        registry.RegisterNetworkComponent("plc-runtime", 1);
        registry.RegisterNetworkComponent("opcua", 1);
        registry.RegisterNetworkComponent("web", 2);
    }

    Answers Collect() const
    {
        Answers answers;
        answers.deviceCount = ethernet.GetDeviceCount();
        for (unsigned int d = 1; d <= answers.deviceCount; ++d) {
            answers.portCounts.push_back(ethernet.GetPortCount(d));
            answers.names.push_back(ethernet.GetInterfaceName(d));
            answers.macs.push_back(ethernet.GetMacAddress(d));
            answers.publicNames.push_back(ethernet.GetPublicInterfaceName(d));
            answers.types.push_back(static_cast<int>(ethernet.GetInterfaceType(d)));
            answers.ports.emplace_back();
            for (unsigned int p = 1; p <= ethernet.GetPortCount(d); ++p) {
                answers.ports.back().emplace_back(static_cast<int>(ethernet.GetPortLinkState(d, p)),
                                                  static_cast<int>(ethernet.GetPortLinkSpeed(d, p)),
                                                  static_cast<int>(ethernet.GetPortLinkDuplex(d, p)),
                                                  ethernet.GetPortPublicName(d, p));
            }
            answers.ipAddresses.push_back(ipStatus.GetIpAddress(d));
            answers.subnetMasks.push_back(ipStatus.GetSubnetMask(d));
            answers.gateways.push_back(ipStatus.GetDefaultGateway(d));
            answers.deviceIpAddresses.push_back(ipStatus.GetDeviceIpAddress(d));
        }
        for (const auto& name : ethernet.GetListOfInterfaceNames()) {
            answers.interfaceList.push_back(name);
        }
        std::shared_lock<std::shared_mutex> reader(registryLock);
        for (const auto& name : stableComponents) {
            answers.registryLookups.push_back(registry.GetNetworkInterface(name));
        }
        for (const auto& name : registry.GetNetworkComponents(1)) {
            answers.componentsOnInterface1.push_back(name);
        }
        return answers;
    }

    NetworkComponentRegistrationModule& Registry() { return registry; }

private:
    ScratchDirectory scratch;
    Zel::Test::SpiDevice spi8794;
    Zel::Test::SpiDevice spi8863;
    HardwareModuleProvider provider;
    EthernetInfoModule ethernet;
    IpStatusModule ipStatus;
    NetworkComponentRegistrationModule registry;
};

// Lets every thread start at the same moment, so that the first calls race.
class StartLine {
public:
    explicit StartLine(int runners) : runners(runners) {}
    void ArriveAndWait()
    {
        arrived.fetch_add(1);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (arrived.load() < runners && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
    }

private:
    const int runners;
    std::atomic<int> arrived{0};
};

class ConcurrentQueries : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }
};

TEST_F(ConcurrentQueries, EightThreadsGetTheSingleThreadedAnswersWhileOneRegisters)
{
    Zel::Test::LogCapture capture(8); // every trace line is formatted: the logging runs concurrently too
    auto sink = std::make_shared<CountingSink>();
    SinkScope sinkScope(sink);

    StressRig rig;
    const Answers expected = rig.Collect();

    // The rig is alive: the values below come from the kernel, the attribute
    // files and the emulated switches, not from unknown codes.
    ASSERT_EQ(expected.deviceCount, 7u) << expected.Describe();
    EXPECT_EQ(expected.ports[0][0], std::make_tuple(1, 0, 2, std::string("X1"))) << expected.Describe();
    EXPECT_EQ(expected.ports[2][0], std::make_tuple(1, 3, 2, std::string("F1"))) << expected.Describe();
    EXPECT_EQ(expected.ports[3][0], std::make_tuple(1, 2, 2, std::string("A1"))) << expected.Describe();
    EXPECT_EQ(expected.ports[3][1], std::make_tuple(0, 0, 0, std::string("A2"))) << expected.Describe();
    EXPECT_EQ(expected.ports[4][0], std::make_tuple(1, 2, 2, std::string("B1"))) << expected.Describe();
    EXPECT_EQ(expected.ports[4][1], std::make_tuple(0, 0, 0, std::string("B2"))) << expected.Describe();
    EXPECT_EQ(expected.ports[5][0], std::make_tuple(1, 2, 2, std::string("C1"))) << expected.Describe();
    EXPECT_EQ(expected.ports[5][1], std::make_tuple(0, 0, 0, std::string("C2"))) << expected.Describe();
    EXPECT_EQ(expected.ports[6][0], std::make_tuple(255, 0, 0, std::string())) << expected.Describe();
    EXPECT_EQ(expected.ipAddresses[0], "192.168.7.10");
    EXPECT_EQ(expected.subnetMasks[0], "255.255.255.0");
    EXPECT_EQ(expected.gateways[0], "192.168.7.1");
    EXPECT_EQ(expected.ipAddresses[1], "0.0.0.0");
    EXPECT_EQ(expected.registryLookups, (std::vector<unsigned int>{1, 1, 2}));
    ASSERT_EQ(sink->Unexpected(), 0u) << sink->FirstProblem();
    // Set-up logs no error; every round logs the same ones (none natively).
    const std::size_t emulatorErrorsPerRound = sink->EmulatorErrors();

    std::atomic<int> mismatches{0};
    std::atomic<int> exceptions{0};
    std::mutex firstFailureLock;
    std::string firstFailure;
    std::atomic<bool> readersDone{false};
    std::atomic<int> registrations{0};
    StartLine start(queryThreads + 1);

    auto report = [&](const std::string& text) {
        std::lock_guard<std::mutex> guard(firstFailureLock);
        if (firstFailure.empty()) {
            firstFailure = text;
        }
    };

    std::vector<std::thread> threads;
    for (int t = 0; t < queryThreads; ++t) {
        threads.emplace_back([&] {
            start.ArriveAndWait();
            for (int i = 0; i < iterationsPerThread; ++i) {
                try {
                    const Answers got = rig.Collect();
                    if (!(got == expected)) {
                        mismatches.fetch_add(1);
                        report(got.Describe());
                    }
                } catch (const std::exception& e) {
                    exceptions.fetch_add(1);
                    report(e.what());
                }
            }
        });
    }
    // The one writer: components come and go on an interface nobody reads.
    threads.emplace_back([&] {
        start.ArriveAndWait();
        for (int i = 0; !readersDone.load(); ++i) {
            const BasicString name = BasicString::Format("transient-{0}", i % 16);
            std::unique_lock<std::shared_mutex> writer(registryLock);
            if (i % 2 == 0) {
                rig.Registry().RegisterNetworkComponent(name, 9);
            } else {
                rig.Registry().UnregisterNetworkComponent(BasicString::Format("transient-{0}", (i - 1) % 16));
            }
            registrations.fetch_add(1);
        }
    });
    for (int t = 0; t < queryThreads; ++t) {
        threads[static_cast<std::size_t>(t)].join();
    }
    readersDone.store(true);
    threads.back().join();

    EXPECT_EQ(mismatches.load(), 0) << firstFailure << "\nexpected:\n" << expected.Describe();
    EXPECT_EQ(exceptions.load(), 0) << firstFailure;
    EXPECT_GT(registrations.load(), 0);
    EXPECT_EQ(rig.Collect(), expected);
    EXPECT_EQ(sink->Unexpected(), 0u) << sink->FirstProblem();
    EXPECT_EQ(sink->EmulatorErrors(), emulatorErrorsPerRound * (queryThreads * iterationsPerThread + 2));
    EXPECT_GT(sink->Count(8), static_cast<std::size_t>(queryThreads * iterationsPerThread));
}

// ---- log channels created by racing first calls -----------------------------

template <int N>
class RaceChannel : public Zel::System::Commons::Logging::Loggable<RaceChannel<N>, false, false> {
public:
    static const LogAdapter* Touch()
    {
        RaceChannel::log(8, "RaceChannel::Touch(): {0}", N);
        return &RaceChannel::log.GetAdapter();
    }
    static BasicString Name() { return RaceChannel::log.GetName(); }
};

constexpr int raceChannels = 32;
constexpr int raceThreads = 16;

template <int... N>
constexpr auto MakeTouches(std::integer_sequence<int, N...>)
{
    return std::array<const LogAdapter* (*)(), sizeof...(N)>{&RaceChannel<N>::Touch...};
}
template <int... N>
auto MakeNames(std::integer_sequence<int, N...>)
{
    return std::array<BasicString, sizeof...(N)>{RaceChannel<N>::Name()...};
}

TEST(LogChannelCreation, RacingFirstCallsCreateOneAdapterPerChannel)
{
    Zel::Test::LogCapture capture(8);
    auto sink = std::make_shared<CountingSink>();
    SinkScope sinkScope(sink);
    LogManager& manager = AppDomain::GetCurrentSingleton<LogManager>();
    const auto touches = MakeTouches(std::make_integer_sequence<int, raceChannels>());
    const auto names = MakeNames(std::make_integer_sequence<int, raceChannels>());
    for (const auto& name : names) {
        ASSERT_EQ(manager.FindLogAdapter(name), nullptr) << name << " exists before the race";
    }
    const std::size_t adaptersBefore = manager.GetAdapterCount();

    std::vector<std::array<const LogAdapter*, raceChannels>> seen(raceThreads);
    StartLine start(raceThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < raceThreads; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            // Each thread walks the channels from another starting point, so
            // every channel has several threads at its first call.
            for (int i = 0; i < raceChannels; ++i) {
                const auto channel = static_cast<std::size_t>((i + t * 3) % raceChannels);
                seen[static_cast<std::size_t>(t)][channel] = touches[channel]();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(manager.GetAdapterCount(), adaptersBefore + raceChannels);
    for (std::size_t c = 0; c < raceChannels; ++c) {
        const auto adapter = manager.FindLogAdapter(names[c]);
        ASSERT_NE(adapter, nullptr) << names[c];
        for (int t = 0; t < raceThreads; ++t) {
            EXPECT_EQ(seen[static_cast<std::size_t>(t)][c], adapter.get()) << names[c] << " thread " << t;
        }
    }
    EXPECT_EQ(sink->Count(8), static_cast<std::size_t>(raceChannels * raceThreads));
}

} // namespace
