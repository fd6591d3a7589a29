// nimhost ip get and ip set in the network sandbox: on the board of
// NimhostBoard.hpp, and on a board of eth0, eth1 and eth10 (veth), whose
// names are prefixes of each other's, with files with VLANs, hwaddress
// lines, comments, sourced files.
// What nimhost says and writes is checked against the file and against
// ifupdown's own reader, ifquery (scripts/fetch-ifupdown.sh unpacks it).
#include "NimhostBoard.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <tuple>

namespace Zel::Test {
namespace {

// ---- ip get / ip set ----

class NimhostIpConfig : public NimhostSandbox {};

TEST_F(NimhostIpConfig, EverySetPrintsTheChangeIsReadBackAndStandsInTheFile)
{
    for (const auto& c : Cases("ip/cases/ip-session.cases")) {
        SCOPED_TRACE(c.name);
        const auto result = Nimhost(Words(c.Line("args")));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        if (c.Has("json")) {
            EXPECT_EQ(Parse(result), json::parse(c["json"]));
        } else {
            EXPECT_EQ(result.out, c["stdout"]);
        }
        if (c.Has("interfaces after")) {
            EXPECT_EQ(ReadFile(interfacesFile), c["interfaces after"]);
        }
    }
}

// A setter the module refuses is exit 1 with its cause in the user's terms;
// the file stays as it was.
TEST_F(NimhostIpConfig, AFailedSetSaysWhyAndLeavesTheFile)
{
    // eth2 exists but has no block in the file.
    NetSandbox().Veth("eth2", "eth2p").Up();
    settings = directory.Write("three.toml",
                               BoardSettings(R"(["3", "X3", "eth2", "1", "sysFile", "P3", "Ethernet"])",
                                             "/sys/class/net/eth2/"));
    for (const auto& c : Cases("ip/cases/failed-sets.cases")) {
        SCOPED_TRACE(c.name);
        const std::string file = c.Has("interfaces") ? c["interfaces"] : "";
        const std::string arguments = c.Line("args");
        Zel::Test::Run("rm -f " + interfacesFile);
        if (!file.empty()) {
            WriteFile(interfacesFile, file);
        }
        ASSERT_EQ(Zel::Test::Run(c.Has("read-only") ? "mount -o remount,ro /etc/network" : "true"), 0);
        const auto result = Nimhost(Words(arguments));
        const auto document = Nimhost(Words(arguments + "|--json"));
        Zel::Test::Run("mount -o remount,rw /etc/network");
        EXPECT_EQ(std::tie(result.exitCode, result.err, result.out), std::make_tuple(1, c["stderr"], std::string()));
        EXPECT_EQ(ReadIfThere(interfacesFile), file);
        ASSERT_TRUE(json::accept(document.out)) << document.out;
        // The cause alone, which ends the message on standard error.
        const std::string message = json::parse(document.out)["error"]["message"];
        EXPECT_EQ(json::parse(document.out)["error"], (json{{"type", "write"}, {"message", message}, {"exitCode", 1}}));
        EXPECT_EQ(c["stderr"].substr(c["stderr"].size() - message.size() - 1), message + "\n");
    }
}

const std::vector<std::string> boardInterfaces{"eth0", "eth1", "eth10"};

// A board of eth0, eth1 and eth10, whose names are prefixes of each other's.
class NimhostFiles : public NimhostBoard {
protected:
    NimhostFiles() : NimhostBoard(boardInterfaces, ReadFile(ZEL_TEST_CASES "/ip/cases/three-ports.toml"), false) {}
};

// ---- what nimhost says, writes and refuses ----

class NimhostEditGuard : public NimhostFiles, public testing::WithParamInterface<Case> {};

TEST_P(NimhostEditGuard, SaysWhereValuesComeFromAndWritesOnlyTheInterfacesOwnLine)
{
    const Case& c = GetParam();
    WriteFile(interfacesFile, c["interfaces"]);
    for (const auto& [section, text] : c.sections) {
        if (section.rfind("file ", 0) == 0) {
            std::filesystem::create_directories(std::filesystem::path(section.substr(5)).parent_path());
            WriteFile(section.substr(5), text);
        }
    }
    for (const auto& name : c.Lines("down")) {
        NetSandbox().SetLinkDown(name);
    }
    const auto result = Nimhost(Words(c.Line("args")));
    EXPECT_EQ(result.exitCode, c.Has("exit") ? std::stoi(c["exit"]) : 0) << result.err;
    EXPECT_EQ(result.err, c.Has("stderr") ? c["stderr"] : "");
    if (c.Has("lines")) {
        ExpectLines(result.out, c.Lines("lines"));
        for (const auto& text : c.Lines("not")) {
            EXPECT_EQ(result.out.find(text), std::string::npos) << text << "\n" << result.out;
        }
    } else {
        EXPECT_EQ(result.out, c.Has("stdout") ? c["stdout"] : "");
    }
    EXPECT_EQ(ReadFile(interfacesFile), c.Has("interfaces after") ? c["interfaces after"] : c["interfaces"]);
}

INSTANTIATE_TEST_SUITE_P(Rows, NimhostEditGuard, testing::ValuesIn(Cases("ip/cases/edit-guard.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

// ---- ifupdown's reading against nimhost's ----

// An interface's options as ifupdown applies them, printed by ifquery as
// "key: value" (a second value of a key on a line of its own); `accepted`
// is false when ifquery refuses the file.
struct Applied {
    bool accepted = false;
    std::map<std::string, std::string> options;
    std::string output;
};

Applied Ifquery(const std::string& name)
{
    const ScratchDirectory state("ifquery");
    Applied applied;
    const int code = Run(fmt::format("'{}' -i {} --state-dir {} {} >{} 2>&1", NIMHOST_IFQUERY, interfacesFile,
                                     state.Path(""), name, state.Path("out")));
    applied.output = state.Read("out");
    applied.accepted = code == 0 || applied.output == fmt::format("ifquery: unknown interface {}\n", name);
    std::string key;
    for (const auto& line : Case{"", {{"out", applied.output}}}.Lines("out")) {
        const std::size_t colon = line.find(": ");
        if (colon == std::string::npos) {
            applied.options[key] += "\n" + line;
        } else if (key = line.substr(0, colon); applied.options.count(key) == 0) {
            // The first stanza's; an inet6 stanza's follow.
            applied.options[key] = line.substr(colon + 2);
        } else {
            key.clear();
        }
    }
    return applied;
}

// A generated file: every board interface and two VLANs, each
// stanza with an auto or allow-hotplug line or none, a method, some of the
// IP options and others (hwaddress, mtu, hooks, comments) in any order and
// number, so that keys fall after the first four lines; eth0 sometimes with
// an inet6 stanza too.
std::string GenerateFile(std::mt19937& random)
{
    const auto pick = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
    std::vector<std::string> stanzas{"auto lo\niface lo inet loopback\n\n"};
    const std::vector<std::string> names{"eth0", "eth1", "eth10", "eth0.100", "eth1.20"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == "eth10" && pick(5) == 0) {
            continue;
        }
        const std::size_t net = 10 + i;
        std::vector<std::string> options{fmt::format("address 10.{}.0.2{}", net, pick(2) == 0 ? "/24" : ""),
                                         "netmask 255.255.255.0",
                                         fmt::format("gateway 10.{}.0.1", net),
                                         fmt::format("dns-nameservers 10.{}.0.53{}", net,
                                                     pick(2) == 0 ? " 9.9.9.9" : ""),
                                         fmt::format("hwaddress ether 02:00:00:00:{:02x}:01", net),
                                         "mtu 1500",
                                         "post-up true",
                                         "# a note"};
        std::shuffle(options.begin(), options.end(), random);
        options.resize(pick(6));
        std::string text =
            std::vector<std::string>{"", "auto " + names[i] + "\n", "allow-hotplug " + names[i] + "\n"}[pick(3)];
        text += pick(4) == 0 ? "# " + names[i] + "\n" : "";
        text += fmt::format("iface {} inet {}\n", names[i],
                            std::vector<std::string>{"static", "static", "dhcp", "manual"}[pick(4)]);
        for (const auto& option : options) {
            text += (pick(6) == 0 ? "\t" : "    ") + option + "\n";
        }
        text += names[i] == "eth0" && pick(3) == 0 ? "\niface eth0 inet6 static\n    address fd00::2/64\n" : "";
        stanzas.push_back(text + (pick(4) == 0 ? "" : "\n"));
    }
    // Half the files in the order that keeps every write in its own stanza,
    // where there is room (a parent before its VLANs, eth1 before eth10).
    if (pick(2) == 0) {
        std::shuffle(stanzas.begin(), stanzas.end(), random);
    }
    return fmt::format("{}", fmt::join(stanzas, ""));
}

std::string Host(const std::string& address)
{
    return address.substr(0, address.find('/'));
}

// nimhost's reading of every board interface agrees with ifupdown's, except
// where nimhost says the value comes from another line.
void ExpectAgreement(const json& report)
{
    for (const auto& device : report["devices"]) {
        const Applied applied = Ifquery(device["interfaceName"]);
        ASSERT_TRUE(applied.accepted) << applied.output;
        for (const auto& [field, key] : std::map<std::string, std::string>{{"address", "address"},
                                                                           {"netmask", "netmask"},
                                                                           {"gateway", "gateway"},
                                                                           {"dnsNameservers", "dns-nameservers"}}) {
            const json& value = device["configured"][field];
            if (!device["foreign"][field].is_null() || (field == "netmask" && value.is_null())) {
                continue;
            }
            const auto found = applied.options.find(key);
            SCOPED_TRACE(fmt::format("{} {}: {}", device["interfaceName"].get<std::string>(), field, value.dump()));
            ASSERT_TRUE(value.is_null() || value.is_string()) << value;
            ASSERT_EQ(value.is_null(), found == applied.options.end()) << applied.output;
            if (value.is_string()) {
                EXPECT_EQ(Host(value.get<std::string>()), Host(found->second)) << applied.output;
            }
        }
    }
}

class NimhostIfquery : public NimhostFiles {};

// Generated files, and random writes into them: every write nimhost allows
// leaves a file ifquery accepts, with the value in the interface's own
// stanza, and nimhost still reads what ifupdown applies; every write it
// refuses leaves the file as it was.
TEST_F(NimhostIfquery, IfupdownAppliesWhatNimhostReadsAndWrites)
{
    if (!std::filesystem::exists(NIMHOST_IFQUERY)) {
        if (InCi()) {
            FAIL() << NIMHOST_IFQUERY << " is missing: scripts/setup.sh unpacks it";
        }
        GTEST_SKIP() << NIMHOST_IFQUERY << " is missing: run scripts/setup.sh";
    }
    std::mt19937 random(20261121);
    const auto pick = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
    // Through qemu every nimhost run takes a good part of a second.
    const int files = NIMHOST_EMULATED ? 12 : 60;
    const std::vector<std::string> fields{"address", "netmask", "gateway", "dns", "mode"};
    const std::map<std::string, std::string> jsonField{{"address", "address"},
                                                       {"netmask", "netmask"},
                                                       {"gateway", "gateway"},
                                                       {"dns", "dnsNameservers"},
                                                       {"mode", "method"}};
    int allowed = 0;
    int refused = 0;
    for (int n = 0; n < files; ++n) {
        WriteFile(interfacesFile, GenerateFile(random));
        SCOPED_TRACE(ReadFile(interfacesFile));
        ExpectAgreement(Parse(Nimhost({"report", "--json"})));
        for (int write = 0; write < 4; ++write) {
            const std::size_t device = pick(3) + 1;
            const std::string field = fields[pick(fields.size())];
            const std::string value = field == "address" ? fmt::format("10.{}.0.{}/24", 200 + write, n + 1)
                : field == "netmask"                     ? std::string("255.255.0.0")
                : field == "gateway"                     ? fmt::format("10.{}.0.1", 200 + write)
                : field == "dns"                         ? std::string("10.0.0.53 9.9.9.9")
                                 : std::vector<std::string>{"static", "dhcp", "manual"}[pick(3)];
            const std::string before = ReadFile(interfacesFile);
            const auto result = Nimhost({"ip", "set", std::to_string(device), field, value});
            SCOPED_TRACE(fmt::format("ip set {} {} {}: {}{}", device, field, value, result.out, result.err));
            if (result.exitCode != 0) {
                EXPECT_EQ(result.exitCode, 1);
                EXPECT_NE(result.err.find(" not written: "), std::string::npos);
                EXPECT_EQ(ReadFile(interfacesFile), before);
                ++refused;
                continue;
            }
            ++allowed;
            Applied applied = Ifquery(boardInterfaces[device - 1]);
            ASSERT_TRUE(applied.accepted && applied.output.find("unknown interface") == std::string::npos)
                << applied.output;
            if (field != "mode") {
                EXPECT_EQ(Host(applied.options[field == "dns" ? "dns-nameservers" : field]), Host(value))
                    << applied.output;
            }
            const json report = Parse(Nimhost({"report", "--json"}));
            // A method may still be read from another interface's iface line,
            // which the module gave the same word (or nimhost had refused).
            EXPECT_TRUE(field == "mode" || report["devices"][device - 1]["foreign"][jsonField.at(field)].is_null());
            ExpectAgreement(report);
        }
    }
    // The files must give both kinds of write.
    EXPECT_GT(allowed, 0);
    EXPECT_GT(refused, 0);
    std::printf("%d files, %d writes allowed, %d refused\n", files, allowed, refused);
}

} // namespace
} // namespace Zel::Test
