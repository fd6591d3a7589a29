// Eight threads ask every read-only question of every module at once — ports
// of every kind, interface names and MAC addresses, IP status, the interface
// list, registry lookups while another thread registers — and every answer
// must equal the one a single thread got before. Built with ThreadSanitizer
// (preset tsan) this also proves the queries free of data races. A second
// group has setters of the IP configuration race each other and readers of
// /etc/network/interfaces; a third races the first calls of many log channels.
#include "CaseFile.hpp"
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "ScratchDirectory.hpp"
#include "spi/SpiEmulator.hpp"

#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/IpConfigModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Modules::Nim::Linux;
using namespace Zel::System::Commons;
using namespace Zel::System::Commons::Logging;
using Zel::Hardware::Nim::AccessErrorCode;
using Zel::Test::LogCapture;
using Zel::Test::Named;
using Zel::Test::RunTogether;

constexpr std::size_t queryThreads = 8;
constexpr std::size_t iterationsPerThread = 120;

// Warnings and errors in the log. qemu-user implements no SIOCETHTOOL, so
// under it the I210 port's speed and duplex fail with ENOSYS (38) on every
// call: those two are the emulator's and no problem.
const std::vector<std::string> emulatorErrors{"Error GetPortLinkSpeed() for device 2, port 1 (eth1): errno 38",
                                              "Error GetPortLinkDuplex() for device 2, port 1 (eth1): errno 38"};

std::vector<std::string> Problems(const LogCapture& capture)
{
    std::vector<std::string> problems;
    for (const auto& record : capture.Records()) {
        if (record.level <= 5 && record.text != emulatorErrors[0] && record.text != emulatorErrors[1]) {
            problems.push_back(record.text);
        }
    }
    return problems;
}

const std::vector<Zel::Test::Case> rigCases = Zel::Test::Cases("rig.cases");

const std::vector<std::string> stableComponents = {"opcua", "plc-runtime", "web"};

// The caller-side lock the registry asks for: the module has no lock of its
// own and its users serialise themselves (readers shared, the writer alone).
std::shared_mutex registryLock;

struct StressRig {
    StressRig()
        : spi8794(Zel::Test::SpiEmulator::Ksz8794()
                      .Register(0x1E, 0x20)
                      .Register(0x1F, 0x06)
                      .Register(0x2E, 0x00)
                      .Register(0x2F, 0x03)
                      .Build(Path("spidev1.0"))),
          spi8863(Zel::Test::SpiEmulator::Ksz8863().Register(0x1F, 0x06).Register(0x2F, 0x00).Build(Path("spidev2.0")))
    {
        for (const auto& [name, text] : Named(rigCases, "attribute files").sections) {
            if (!name.empty()) { // the case's unnamed section is empty
                std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
                Zel::Test::WriteFile(Path(name), text);
            }
        }
        ModuleSettings settings;
        for (const auto& line : Named(rigCases, "settings").Lines("settings")) {
            const auto words = Zel::Test::Words(line);
            settings.AddSetting(words[0], words[1].rfind("scratch/", 0) == 0 ? Path(words[1].substr(8)) : words[1]);
        }
        SettingField table("interfaces");
        for (const auto& line : Named(rigCases, "settings").Lines("interfaces")) {
            const auto words = Zel::Test::Words(line);
            table.AddLine({words.begin(), words.end()});
        }
        settings.AddSettingField("interfaces", table);

        ethernet.SetupSettings(settings, provider);
        provider.AddHardwareModule(ethernet);
        ipStatus.SetupSettings(ModuleSettings(), provider);
        registry.SetupSettings(ModuleSettings(), provider);
        registry.RegisterNetworkComponent("plc-runtime", 1);
        registry.RegisterNetworkComponent("opcua", 1);
        registry.RegisterNetworkComponent("web", 2);
    }

    // Every answer a reader can get: a line per device, the interface list, the registry.
    std::vector<std::string> Collect() const
    {
        std::vector<std::string> lines;
        for (unsigned int d = 1; d <= ethernet.GetDeviceCount(); ++d) {
            std::string line =
                fmt::format("{} {} {} '{}' {} ip {}/{} gw {} device ip {}:", d, ethernet.GetInterfaceName(d),
                            ethernet.GetMacAddress(d), ethernet.GetPublicInterfaceName(d),
                            static_cast<int>(ethernet.GetInterfaceType(d)), ipStatus.GetIpAddress(d),
                            ipStatus.GetSubnetMask(d), ipStatus.GetDefaultGateway(d), ipStatus.GetDeviceIpAddress(d));
            for (unsigned int p = 1; p <= ethernet.GetPortCount(d); ++p) {
                line +=
                    fmt::format(" [{},{},{},'{}']", static_cast<int>(ethernet.GetPortLinkState(d, p)),
                                static_cast<int>(ethernet.GetPortLinkSpeed(d, p)),
                                static_cast<int>(ethernet.GetPortLinkDuplex(d, p)), ethernet.GetPortPublicName(d, p));
            }
            lines.push_back(line);
        }
        lines.push_back(fmt::format("interfaces: {}", fmt::join(ethernet.GetListOfInterfaceNames(), " ")));
        std::shared_lock<std::shared_mutex> reader(registryLock);
        std::string line = "registry:";
        for (const auto& name : stableComponents) {
            line += fmt::format(" {}", registry.GetNetworkInterface(name));
        }
        lines.push_back(fmt::format("{}; on 1: {}", line, fmt::join(registry.GetNetworkComponents(1), " ")));
        return lines;
    }

    std::string Path(const std::string& name) const { return scratch.Path(name); }

    Zel::Test::ScratchDirectory scratch{"zel-stress"};
    Zel::Test::SpiDevice spi8794;
    Zel::Test::SpiDevice spi8863;
    HardwareModuleProvider provider; // devices 1 and 2 are on eth0 and eth1
    EthernetInfoModule ethernet;
    IpStatusModule ipStatus;
    NetworkComponentRegistrationModule registry;
};

TEST(ConcurrentQueries, EightThreadsGetTheSingleThreadedAnswersWhileOneRegisters)
{
    ZEL_REQUIRE_SANDBOX();
    LogCapture capture(8); // every trace line is formatted: the logging runs concurrently too
    StressRig rig;
    const std::size_t setUpRecords = capture.Records().size();
    const auto expected = rig.Collect();
    const std::size_t recordsPerRound = capture.Records().size() - setUpRecords;
    const std::string all = fmt::format("{}", fmt::join(expected, "\n"));

    // The rig is alive: the answers come from the kernel, the attribute files
    // and the emulated switches. Set-up and a round log no problem.
    const auto answers = Named(rigCases, "answers").Lines("lines");
    ASSERT_EQ(answers.size(), expected.size()) << all;
    for (std::size_t row = 0; row < expected.size(); ++row) {
        EXPECT_EQ(answers[row], row == 1 ? expected[row].substr(0, answers[row].size()) : expected[row]);
    }
    ASSERT_EQ(Problems(capture), std::vector<std::string>{});

    std::array<std::string, queryThreads> failures;
    std::atomic<std::size_t> readersLeft{queryThreads};
    int registrations = 0;
    RunTogether(queryThreads + 1, [&](std::size_t t) {
        // The one writer: components come and go on an interface nobody reads.
        for (; t == queryThreads && readersLeft.load() > 0; ++registrations) {
            std::unique_lock<std::shared_mutex> writer(registryLock);
            if (registrations % 2 == 0) {
                rig.registry.RegisterNetworkComponent(BasicString::Format("transient-{0}", registrations % 16), 9);
            } else {
                rig.registry.UnregisterNetworkComponent(BasicString::Format("transient-{0}", (registrations - 1) % 16));
            }
        }
        for (std::size_t i = 0; t < queryThreads && i < iterationsPerThread && failures[t].empty(); ++i) {
            try {
                const auto got = rig.Collect();
                if (got != expected) {
                    failures[t] = fmt::format("{}", fmt::join(got, "\n"));
                }
            } catch (const std::exception& e) {
                failures[t] = e.what();
            }
        }
        readersLeft -= t < queryThreads ? 1 : 0;
    });

    for (const auto& failure : failures) {
        EXPECT_EQ(failure, "") << "expected:\n" << all;
    }
    EXPECT_GT(registrations, 0);
    EXPECT_EQ(rig.Collect(), expected);
    EXPECT_EQ(Problems(capture), std::vector<std::string>{});
    EXPECT_GE(capture.Records().size(), setUpRecords + recordsPerRound * (queryThreads * iterationsPerThread + 2));
}

// ---- setters of the IP configuration against each other and readers ----

TEST(ConcurrentSetters, NoSetterLosesAWriteAndReadersSeeOnlyWholeValues)
{
    ZEL_REQUIRE_SANDBOX();
    LogCapture capture(8);
    Zel::Test::WriteFile("/etc/network/interfaces", Named(rigCases, "interfaces file the setters start from")["file"]);
    StressRig rig;
    IpConfigModule ipConfig;
    ipConfig.SetupSettings(ModuleSettings(), rig.provider);

    using Module = IpConfigModule;
    struct Field {
        unsigned int device;
        AccessErrorCode (Module::*set)(unsigned int, const BasicString&);
        BasicString (Module::*get)(unsigned int);
        const char* initial;
        std::array<const char*, 2> values; // set in turn; the first is the last one set
    };
    const std::array<Field, 4> fields{{
        {1, &Module::SetSubnetMask, &Module::GetSubnetMask, "255.255.255.0", {"255.255.0.0", "255.255.255.128"}},
        {1, &Module::SetDefaultGateway, &Module::GetDefaultGateway, "192.168.7.1", {"192.168.7.254", "192.168.7.2"}},
        {2, &Module::SetIpAddress, &Module::GetIpAddress, "10.0.0.10", {"10.0.0.11", "10.0.0.12"}},
        {2, &Module::SetDnsNameservers, &Module::GetDnsNameservers, "10.0.0.1", {"10.0.0.53 9.9.9.9", "10.0.0.2"}},
    }};
    constexpr int writesPerSetter = 200;
    std::array<std::string, fields.size() * 2> failures; // a setter, then a reader, for each field
    std::atomic<int> settersDone{0};
    RunTogether(failures.size(), [&](std::size_t r) {
        const Field& field = fields[r % fields.size()];
        for (int i = writesPerSetter; r < fields.size() && i-- > 0 && failures[r].empty();) {
            const char* value = field.values[static_cast<std::size_t>(i % 2)];
            // Only this thread writes the field: reading back anything else
            // is a write of another setter that lost this one's.
            if ((ipConfig.*field.set)(field.device, value) != AccessErrorCode::Success) {
                failures[r] = fmt::format("setting {} failed", value);
            } else if (const BasicString got = (ipConfig.*field.get)(field.device); got != value) {
                failures[r] = fmt::format("set {}, read back {}", value, got);
            }
        }
        settersDone += r < fields.size() ? 1 : 0;
        while (r >= fields.size() && settersDone.load() < static_cast<int>(fields.size()) && failures[r].empty()) {
            try {
                const BasicString got = (ipConfig.*field.get)(field.device);
                if (got != field.initial && got != field.values[0] && got != field.values[1]) {
                    failures[r] = fmt::format("read {}", got);
                }
            } catch (const std::exception& e) {
                failures[r] = e.what();
            }
        }
    });
    for (const auto& failure : failures) {
        EXPECT_EQ(failure, "");
    }
    for (const auto& field : fields) {
        EXPECT_EQ((ipConfig.*field.get)(field.device), field.values[0]);
    }
    EXPECT_EQ(Problems(capture), std::vector<std::string>{});
    EXPECT_EQ(capture.Sink().Count(8, "IpConfigModule::SetSubnetMask(): OK..."), std::size_t{writesPerSetter});
}

// ---- log channels created by racing first calls ----

template <int N>
class RaceChannel : public Loggable<RaceChannel<N>, false, false> {
public:
    static const LogAdapter* Touch()
    {
        RaceChannel::log(8, "RaceChannel::Touch(): {0}", N);
        return &RaceChannel::log.GetAdapter();
    }
    static BasicString Name() { return RaceChannel::log.GetName(); }
};

constexpr std::size_t raceChannels = 32;
constexpr std::size_t raceThreads = 16;

template <int... N>
auto MakeChannels(std::integer_sequence<int, N...>)
{
    return std::make_pair(std::array<const LogAdapter* (*)(), sizeof...(N)>{&RaceChannel<N>::Touch...},
                          std::array<BasicString, sizeof...(N)>{RaceChannel<N>::Name()...});
}

TEST(LogChannelCreation, RacingFirstCallsCreateOneAdapterPerChannel)
{
    LogCapture capture(8);
    LogManager& manager = AppDomain::GetCurrentSingleton<LogManager>();
    const auto [touches, names] = MakeChannels(std::make_integer_sequence<int, raceChannels>());
    for (const auto& name : names) {
        ASSERT_EQ(manager.FindLogAdapter(name), nullptr) << name << " exists before the race";
    }
    const std::size_t adaptersBefore = manager.GetAdapterCount();

    std::array<std::array<const LogAdapter*, raceChannels>, raceThreads> seen{};
    RunTogether(raceThreads, [&](std::size_t t) {
        // Each thread starts at another channel, so every first call has several threads.
        for (std::size_t i = 0; i < raceChannels; ++i) {
            const std::size_t channel = (i + t * 3) % raceChannels;
            seen[t][channel] = touches[channel]();
        }
    });

    EXPECT_EQ(manager.GetAdapterCount(), adaptersBefore + raceChannels);
    for (std::size_t c = 0; c < raceChannels; ++c) {
        const auto adapter = manager.FindLogAdapter(names[c]);
        ASSERT_NE(adapter, nullptr) << names[c];
        for (std::size_t t = 0; t < raceThreads; ++t) {
            EXPECT_EQ(seen[t][c], adapter.get()) << names[c] << " thread " << t;
        }
        EXPECT_EQ(capture.Count(8, fmt::format("RaceChannel::Touch(): {}", c)), raceThreads);
    }
    EXPECT_EQ(capture.Records().size(), raceChannels * raceThreads);
}

} // namespace
