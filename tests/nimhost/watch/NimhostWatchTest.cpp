// nimhost watch in the network sandbox, following the kernel's link
// notifications on the board of NimhostBoard.hpp, and the KSZ8863's link
// lines on a gpio-sim chip; and on their own, the rtnetlink link-message
// parser on the datagrams of watch/cases/link-messages.cases and the log
// digest that prints the library's messages while the watch runs.
#include "GpioSimChip.hpp"
#include "NimhostBoard.hpp"
#include "plugin/LogDigest.hpp"
#include "watch/LinkEvents.hpp"

#include <cstdint>
#include <memory>
#include <regex>
#include <sstream>
#include <tuple>

namespace Zel::Test {
namespace {

// The complete lines of a text.
std::vector<std::string> Split(const std::string& text)
{
    return Case{"", {{"out", text.substr(0, text.rfind('\n') + 1)}}}.Lines("out");
}

class NimhostWatch : public NimhostSandbox {
protected:
    // Starts `nimhost watch` in the background: standard output to
    // run.Path("out"), standard error to run.Path("err"), the exit code to
    // run.Path("rc") once it ended.
    void Start(std::vector<std::string> options, const std::string& logLevel = "0") const
    {
        options.insert(options.begin(), {"--config", settings, "--log-level", logLevel, "watch", "--interval", "20"});
        Zel::Test::Run("(" + NimhostCommand(options) + " >" + run.Path("out") + " 2>" + run.Path("err") +
                       " & echo $! >" + run.Path("pid") + "; wait $!; echo $? >" + run.Path("rc") +
                       ") >/dev/null 2>&1 &");
    }

    void TearDown() override
    {
        Zel::Test::Run("kill $(cat " + run.Path("pid") + " 2>/dev/null) 2>/dev/null"); // a watch a failed test left
        NimhostSandbox::TearDown();
    }

    // The complete lines of output, once there are `count` (fewer after 20 s).
    std::vector<std::string> Lines(std::size_t count) const
    {
        std::vector<std::string> lines;
        WaitUntil(
            [&] {
                lines = Split(ReadIfThere(run.Path("out")));
                return lines.size() >= count;
            },
            20s);
        return lines;
    }

    // The exit code once nimhost ended; -1 when it did not within 20 s.
    int ExitCode() const
    {
        const bool ended =
            WaitUntil([this] { return ReadIfThere(run.Path("rc")).find('\n') != std::string::npos; }, 20s);
        return ended ? std::stoi(ReadIfThere(run.Path("rc"))) : -1;
    }

    ScratchDirectory run;
    const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})";
};

TEST_F(NimhostWatch, JsonPrintsEveryPortThenEachChangeAndEndsAfterCountChanges)
{
    Start({"--json", "--count", "2"});
    ASSERT_EQ(Lines(2).size(), 2U);
    // Pulling eth1's cable changes its operstate only: one change each way.
    NetSandbox().SetLinkDown("eth1p");
    ASSERT_EQ(Lines(3).size(), 3U);
    NetSandbox().SetLinkUp("eth1p");
    EXPECT_EQ(ExitCode(), 0);
    const auto lines = Lines(4);
    ASSERT_EQ(lines.size(), 4U);
    const std::vector<std::tuple<const char*, int, int>> events{{"initial", 1, 1},
                                                                {"initial", 2, 1},
                                                                {"change", 2, 255},
                                                                {"change", 2, 1}};
    for (std::size_t i = 0; i < events.size(); ++i) {
        const auto& [event, device, linkState] = events[i];
        const auto parsed = json::parse(lines[i]);
        EXPECT_TRUE(std::regex_match(parsed["time"].get<std::string>(), std::regex(time))) << lines[i];
        auto expected = parsed;
        expected.update(json{{"event", event}, {"device", device}, {"port", 1}, {"linkState", linkState}});
        EXPECT_EQ(parsed, expected);
    }
}

// Text lines carry a timestamp and the codes in words. A port whose interface
// is down logs its read errors on every read: each is printed when it first
// comes and once more with its count when SIGTERM ends the watch.
TEST_F(NimhostWatch, TextLinesAndRepeatedLibraryMessagesPrintedOnceWithTheirCount)
{
    NetSandbox().Ip("link set eth1 down");
    ASSERT_TRUE(WaitUntil([] { return Operstate("eth1") == "down"; }, 10s));
    Start({}, "3");
    ASSERT_EQ(Lines(2).size(), 2U);
    // A new MTU is a link notification for eth1 without a change of its link:
    // its port is read again and its errors repeat before eth0's change comes.
    NetSandbox().Ip("link set eth1 mtu 1400");
    NetSandbox().SetLinkDown("eth0p");
    const auto lines = Lines(3);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_TRUE(std::regex_match(lines[2],
                                 std::regex(time +
                                            R"(  device 1 \(eth0\) port 1 \(P1\): link unknown )"
                                            R"(\(255\), speed unknown \(0\), duplex full \(2\))")))
        << lines[2];
    Zel::Test::Run("kill -TERM $(cat " + run.Path("pid") + ")");
    EXPECT_EQ(ExitCode(), 0);
    const std::string err = ReadIfThere(run.Path("err"));
    const std::regex message(
        R"(\[3\] [\w.]+: Error \w+\(\) for device 2, port 1 \(/sys/class/net/eth1/(speed|duplex)\): )"
        R"(errno 22( \((\d+) times\))?)");
    std::size_t first = 0;
    std::size_t counted = 0;
    for (const auto& line : Split(err)) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, message)) << err;
        EXPECT_TRUE(!match[2].matched || std::stoul(match[3]) >= 2U) << line;
        ++(match[2].matched ? counted : first);
    }
    EXPECT_EQ(first, 2U) << err;
    EXPECT_EQ(counted, 2U) << err;
}

// Kernel notifications in the sandbox: the cases of watch-events.cases.
class NimhostWatchEvents : public NimhostWatch, public testing::WithParamInterface<Case> {};

TEST_P(NimhostWatchEvents, ChangesFollowTheKernelsNotifications)
{
    const Case& c = GetParam();
    auto options = c.Has("options") ? Words(c.Line("options")) : std::vector<std::string>{};
    options.push_back("--json");
    Start(options);
    ASSERT_EQ(Lines(2).size(), 2U);
    ASSERT_EQ(Zel::Test::Run(c["action"]), 0) << c["action"];
    std::vector<json> expected;
    for (const auto& line : c.Lines("events")) {
        expected.push_back(json::parse(line));
    }
    const std::string error = c.Has("stderr contains") ? c["stderr contains"] : "";
    std::size_t found = 0;
    WaitUntil(
        [&] {
            found = 0;
            for (const auto& line : Lines(0)) {
                const auto event = json::parse(line);
                auto merged = event;
                if (found < expected.size()) {
                    merged.update(expected[found]);
                }
                if (found < expected.size() && event == merged) {
                    ++found;
                }
            }
            return found == expected.size() && ReadIfThere(run.Path("err")).find(error) != std::string::npos;
        },
        8s);
    EXPECT_EQ(found, expected.size()) << ReadIfThere(run.Path("out"));
    EXPECT_NE(ReadIfThere(run.Path("err")).find(error), std::string::npos) << ReadIfThere(run.Path("err"));
}

INSTANTIATE_TEST_SUITE_P(Rows, NimhostWatchEvents, testing::ValuesIn(Cases("watch/cases/watch-events.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

// ---- KSZ8863 link lines on the GPIO character device (armhf VM) ----

// Device 1 (eth0) is a KSZ8863 whose link lines are gpio-sim lines: port 1
// line 3 by the chip's label, port 2 the line named ETH2_LINK (line 5). The
// switch is an emulated spidev node preloaded into nimhost (port 1 100 Mbit/s
// full duplex, port 2 10 Mbit/s half).
class NimhostGpio : public NimhostWatch {
protected:
    void SetUp() override
    {
        NimhostWatch::SetUp();
        // The sandbox's own /sys comes without configfs.
        ASSERT_EQ(Zel::Test::Run(
                      "test -d /sys/kernel/config/gpio-sim || mount -t configfs configfs /sys/kernel/config"),
                  0);
        // A new-expression builds the chip in place; it cannot be moved.
        sim.reset(new GpioSimChip(GpioSimChip().Lines(8).Name(3, "ETH1_LINK").Name(5, "ETH2_LINK").Build()));
        setenv("LD_PRELOAD", ZEL_SPI_PRELOAD, 1);
        setenv("ZEL_SPI_NODES", ("ksz8863:" + spi + ":1f=06:2f=00").c_str(), 1);
        sim->SetPull(3, GpioSimChip::Pull::Up);
        settings = directory.Write("gpio.toml", Fill(cases.at(0)["board.toml"]));
    }
    void TearDown() override
    {
        unsetenv("LD_PRELOAD");
        NimhostWatch::TearDown();
    }
    std::string Fill(std::string text) const
    {
        const std::string label = ReadFile(fmt::format("/sys/class/gpio/gpiochip{}/label", sim->Base()));
        for (const auto& [placeholder, value] : {std::pair<std::string, std::string>{"<spi>", spi},
                                                 {"<label>", label.substr(0, label.find('\n'))},
                                                 {"<node>", sim->DevicePath()},
                                                 {"<dir>", directory.Path("")}}) {
            text = Zel::Test::Fill(text, placeholder, value);
        }
        return text;
    }

    std::unique_ptr<GpioSimChip> sim;
    const std::string spi = directory.Write("spidev0.0", "");
    const std::vector<Case> cases = Cases("watch/cases/gpio.cases");
};

// The watch polls the lines (every 20 ms) while report and metrics read them
// from other processes: every read gets its line, nothing is logged.
TEST_F(NimhostGpio, ReportMetricsAndWatchFollowTheLines)
{
    Start({"--count", "1"}, "3");
    ASSERT_EQ(Lines(2).size(), 2U);
    const auto report = Nimhost({"report"});
    const auto metrics = RunNimhost({"--config", settings, "metrics"});
    ExpectLines(report.out + metrics.out, cases.at(0).Lines("lines"));
    EXPECT_EQ(metrics.err, "");
    sim->SetPull(5, GpioSimChip::Pull::Up);
    EXPECT_EQ(ExitCode(), 0);
    EXPECT_EQ(Lines(3).at(2).substr(25), cases.at(0).Line("change"));
    EXPECT_EQ(ReadIfThere(run.Path("err")), "");
}

// The settings check finds both lines as the port's set-up does; a line two
// ports share is refused, a line another program holds warned about and read
// as unknown with the holder named.
TEST_F(NimhostGpio, SettingsCheckAndABusyLine)
{
    const auto shared = RunNimhost({"--config", directory.Write("shared.toml", Fill(cases.at(1)["board.toml"]))});
    EXPECT_EQ(shared.exitCode, 2);
    EXPECT_EQ(shared.err, Fill(cases.at(1)["stderr"]));
    sim->Export(5);
    const auto busy = RunNimhost({"--config", settings, "report"});
    EXPECT_EQ(busy.exitCode, 0);
    EXPECT_EQ(busy.err, Fill(cases.at(2)["stderr"]));
    for (const char* part : {"line", "reason"}) {
        EXPECT_NE(busy.out.find(Fill(cases.at(2).Line(part))), std::string::npos) << busy.out;
    }
}

// With the metrics service's credentials, the chip node as the package's udev
// rule leaves it (the service's group, 0640) and the other chips root's own,
// the lines read as root reads them: a line request needs only a descriptor
// opened for reading, and the search by name passes chips it cannot open.
TEST_F(NimhostGpio, TheServiceUserReadsTheLinesOnTheUdevRulesModes)
{
    ASSERT_EQ(Zel::Test::Run(fmt::format("chmod 755 {0} && chgrp 64123 {1} {2} && chmod 640 {1} && chmod 660 {2}",
                                         directory.Path(""), sim->DevicePath(), spi)),
              0);
    const auto root = RunNimhost({"--config", settings, "report"});
    const auto service = RunNimhost({"--config", settings, "report"}, ServiceCredentials);
    EXPECT_EQ(service.exitCode, 0) << service.err;
    EXPECT_EQ(service.err, "");
    EXPECT_EQ(service.out, root.out);
    ExpectLines(service.out, {cases.at(0).Lines("lines").at(0), cases.at(0).Lines("lines").at(1)});
}

// ---- the parser and the log digest on their own ----

using Zel::Tools::Nimhost::LinkEvent;
using Zel::Tools::Nimhost::LinkMessages;
using Zel::Tools::Nimhost::LogDigest;
using Zel::Tools::Nimhost::ParseLinkMessages;

// The datagrams are written in hex; each parsed event is one line "kind
// index name flags", and "lost" follows when the batch is not to be trusted.
TEST(WatchParse, LinkMessagesGiveTheirKindIndexNameAndFlagsAndAFaultMarksTheBatchLost)
{
    for (const auto& c : Cases("watch/cases/link-messages.cases")) {
        SCOPED_TRACE(c.name);
        std::vector<std::uint8_t> datagram;
        std::istringstream hex(c["datagram"]);
        for (std::string word; hex >> word;) {
            for (std::size_t at = 0; at + 1 < word.size(); at += 2) {
                datagram.push_back(static_cast<std::uint8_t>(std::stoul(word.substr(at, 2), nullptr, 16)));
            }
        }
        const LinkMessages parsed = ParseLinkMessages(datagram.data(), datagram.size());
        std::string events;
        for (const auto& event : parsed.events) {
            events += fmt::format("{} {} {} {:#x}\n", event.kind == LinkEvent::Kind::NewLink ? "new" : "del",
                                  event.index, event.name, event.flags);
        }
        EXPECT_EQ(events + (parsed.lost ? "lost\n" : ""), c["parsed"]);
    }
}

// News once, repeats counted and told at the end; debug lines every time;
// lines above the print level only kept.
TEST(WatchParse, LogDigestPrintsNewsOnceAndTellsHowOftenItCame)
{
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    LogDigest digest(7, out);
    digest.Silence("said by nimhost");
    for (const char* text : {"again", "again", "once", "said by nimhost", "twice", "again", "twice"}) {
        digest.Write(3, "A", text);
    }
    digest.Write(7, "B", "debug");
    digest.Write(7, "B", "debug");
    digest.Write(8, "B", "trace");
    digest.Finish();
    std::string text(4096, '\0');
    std::rewind(out);
    text.resize(std::fread(text.data(), 1, text.size(), out));
    std::fclose(out);
    EXPECT_EQ(text,
              "[3] A: again\n[3] A: once\n[3] A: twice\n[7] B: debug\n[7] B: debug\n"
              "[3] A: again (3 times)\n[3] A: twice (2 times)\n");
    EXPECT_EQ(digest.TextsSince(4, 3), (std::vector<std::string>{"twice", "again", "twice"}));
}

} // namespace
} // namespace Zel::Test
