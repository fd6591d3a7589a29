// Reading values, the refusal of line breaks in values, and the failure paths
// of IpConfigFileAccess, on temporary interfaces files.
#include "MemoryLogSink.hpp"
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using Zel::Test::LogCapture;
using Zel::Test::IpConfig::Exists;
using Zel::Test::IpConfig::ParameterOrder;
using Zel::Test::IpConfig::ReadFile;
using Zel::Test::IpConfig::TempDir;
using Zel::Test::IpConfig::WriteFile;

const std::string twoInterfaces = "auto lo\n"
                                  "iface lo inet loopback\n"
                                  "\n"
                                  "auto eth0\n"
                                  "iface eth0 inet static\n"
                                  "    address 192.168.1.10\n"
                                  "    netmask 255.255.255.0\n"
                                  "    gateway 192.168.1.1\n"
                                  "\n"
                                  "allow-hotplug eth1\n"
                                  "iface eth1 inet dhcp\n";

class IpConfigFileAccessTest : public ::testing::Test {
protected:
    IpConfigFileAccessTest() : file(temp.File("interfaces")), access(ParameterOrder(), file) {}

    TempDir temp;
    std::string file;
    IpConfigFileAccess access;
};

// ---------------------------------------------------------------- reading --

struct ReadCase {
    const char* name;
    std::string content;
    const char* interfaceName;
    const char* key;
    int result;
    std::string value; // what the caller's "unchanged" sentinel becomes
};

const std::string sentinel = "unchanged";

class IpConfigRead : public IpConfigFileAccessTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(IpConfigRead, FindsTheValueByTheLineRules)
{
    const ReadCase& c = GetParam();
    WriteFile(file, c.content);
    BasicString value(sentinel);
    EXPECT_EQ(c.result, access.ReadIpPara(c.interfaceName, c.key, value));
    EXPECT_EQ(c.value, value);
}

const ReadCase readCases[] = {
    {"address", twoInterfaces, "eth0", "address", 0, "192.168.1.10"},
    {"gateway_last_line_of_block", twoInterfaces, "eth0", "gateway", 0, "192.168.1.1"},
    {"method_word", twoInterfaces, "eth1", "inet", 0, "dhcp"},
    {"key_missing_in_block_leaves_value", twoInterfaces, "eth1", "address", 1, sentinel},
    {"no_block_for_interface", twoInterfaces, "eth2", "address", 1, sentinel},
    {"value_ends_at_first_blank", "iface eth0 inet static\n    address 10.0.0.1 # lab\n", "eth0", "address", 0,
     "10.0.0.1"},
    {"several_blanks_after_key", "iface eth0 inet static\n    netmask      255.0.0.0\n", "eth0", "netmask", 0,
     "255.0.0.0"},
    {"tab_is_not_white_space", "iface eth0 inet static\n    address\t10.0.0.1 x\n", "eth0", "address", 0,
     "\t10.0.0.1"},
    {"carriage_return_stays_in_value", "iface eth0 inet static\r\n    address 10.0.0.1\r\n", "eth0", "address", 0,
     "10.0.0.1\r"},
    {"dns_servers_to_line_end_with_blanks", "iface eth0 inet static\n    dns-nameservers 1.1.1.1  8.8.8.8 \n", "eth0",
     "dns-nameservers", 0, "1.1.1.1  8.8.8.8 "},
    {"inet6_gives_6", "iface eth0 inet6 static\n    address fd00::1\n", "eth0", "inet", 0, "6"},
    {"hwaddress_answers_address", "iface eth0 inet static\n    hwaddress ether 02:00:00:00:00:01\n    address 1.2.3.4\n",
     "eth0", "address", 0, "ether"},
    {"fifth_line_found_when_reading",
     "iface eth0 inet static\n    mtu 1500\n    up a\n    up b\n    up c\n    netmask 255.0.0.0\n", "eth0",
     "netmask", 0, "255.0.0.0"},
    {"comment_lines_searched", "iface eth0 inet dhcp\n# address 10.9.9.9\n", "eth0", "address", 0, "10.9.9.9"},
    {"column_one_comment_with_iface_ends_block", "iface eth0 inet dhcp\n#iface eth1 inet static\n    address 10.1.1.1\n",
     "eth0", "address", 1, sentinel},
    {"name_prefix_opens_longer_name", "iface eth10 inet static\n    address 10.10.0.1\n", "eth1", "address", 0,
     "10.10.0.1"},
    {"other_iface_line_ends_block", "iface eth0 inet dhcp\niface eth1 inet static\n    address 10.1.1.1\n", "eth0",
     "address", 1, sentinel},
    {"second_block_reopens",
     "iface eth0 inet dhcp\niface eth1 inet static\n    address 10.1.1.1\niface eth0 inet6 auto\n    address fd::1\n",
     "eth0", "address", 0, "fd::1"},
    {"first_occurrence_across_blocks", "iface eth0 inet static\n    mtu 1400\niface eth0 inet6 static\n    mtu 1280\n",
     "eth0", "mtu", 0, "1400"},
    {"header_line_is_searched", "iface eth0 inet static # gateway 10.0.0.254\n", "eth0", "gateway", 0,
     "10.0.0.254"},
    {"last_line_without_newline", "iface eth0 inet static\n    gateway 192.168.0.1", "eth0", "gateway", 0,
     "192.168.0.1"},
    {"lines_before_first_iface_not_in_block", "    address 1.1.1.1\niface eth0 inet dhcp\n", "eth0", "address", 1,
     sentinel},
};

INSTANTIATE_TEST_SUITE_P(Lines, IpConfigRead, ::testing::ValuesIn(readCases),
                         [](const ::testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST_F(IpConfigFileAccessTest, KeyEndingItsLineLetsOutOfRangeEscape)
{
    for (const char* content : {"iface eth0 inet static\n    address\n", "iface eth0 inet static\n    address   \n",
                                "iface eth0 inet static\n    address"}) {
        WriteFile(file, content);
        LogCapture capture(8);
        BasicString value;
        EXPECT_THROW(access.ReadIpPara("eth0", "address", value), std::out_of_range) << content;
        EXPECT_TRUE(capture.Records().empty()) << "nothing is logged on the way out";
    }
}

TEST_F(IpConfigFileAccessTest, ReadTracesValueAndKey)
{
    WriteFile(file, twoInterfaces);
    LogCapture capture(8);
    BasicString value;
    ASSERT_EQ(0, access.ReadIpPara("eth0", "netmask", value));
    BasicString missing("keep");
    ASSERT_EQ(1, access.ReadIpPara("eth0", "mtu", missing));
    const auto records = capture.Records();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(8, records[0].level);
    EXPECT_EQ("IpConfigFileAccess::ReadIpPara(): Read 255.255.255.0 from netmask", records[0].text);
    EXPECT_EQ("Zel.Hardware.Modules.Commons.Linux.IpConfigFileAccess", records[0].channel);
    EXPECT_EQ("IpConfigFileAccess::ReadIpPara(): Read keep from mtu", records[1].text);
}

TEST_F(IpConfigFileAccessTest, ReadOfMissingFileLogsOnlyTheOpenError)
{
    LogCapture capture(8);
    BasicString value("keep");
    EXPECT_EQ(1, access.ReadIpPara("eth0", "address", value));
    EXPECT_EQ("keep", value);
    const auto records = capture.Records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(3, records[0].level);
    EXPECT_EQ("Error open file " + file, records[0].text);
}

TEST(IpConfigFileAccessDefaults, WorksOnTheSystemFileAndItsTemporaryFile)
{
    const IpConfigFileAccess access(ParameterOrder());
    EXPECT_EQ("/etc/network/interfaces", access.GetFileName());
    EXPECT_EQ("/etc/network/interfaces.tmp", access.GetTempFileName());
}

// ---------------------------------------------------------------- writing --

TEST_F(IpConfigFileAccessTest, WriteTracesBeforeItTouchesTheFile)
{
    WriteFile(file, twoInterfaces);
    LogCapture capture(8);
    ASSERT_EQ(0, access.WriteIpPara("eth0", "gateway", "192.168.1.254"));
    const auto records = capture.Records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(8, records[0].level);
    EXPECT_EQ("IpConfigFileAccess::WriteIpPara(): Write 192.168.1.254 to gateway", records[0].text);
}

// A value that could start a line of its own ("up" lines run as root) or cut
// one short is refused before anything is opened.
TEST_F(IpConfigFileAccessTest, ValuesWithLineBreaksOrNulAreRefused)
{
    const std::string values[] = {"10.0.0.1\n    up /bin/sh -c id", "10.0.0.1\rup id", std::string("10.0.0.1\0x", 10),
                                  "\n"};
    for (const std::string& value : values) {
        for (const char* key : {"address", "inet"}) {
            WriteFile(file, twoInterfaces);
            LogCapture capture(8);
            EXPECT_EQ(1, access.WriteIpPara("eth0", key, value));
            EXPECT_EQ(twoInterfaces, ReadFile(file));
            EXPECT_FALSE(Exists(file + ".tmp"));
            const auto records = capture.Records();
            ASSERT_EQ(1u, records.size());
            EXPECT_EQ(3, records[0].level);
            EXPECT_EQ(std::string("IpConfigFileAccess::WriteIpPara(): Refused value for ") + key +
                          ": it contains a line feed, carriage return or NUL character",
                      records[0].text);
        }
    }
}

TEST_F(IpConfigFileAccessTest, MissingInputLeavesTheTemporaryFileBehind)
{
    LogCapture capture(8);
    EXPECT_EQ(1, access.WriteIpPara("eth0", "address", "10.0.0.1"));
    EXPECT_FALSE(Exists(file));
    EXPECT_TRUE(Exists(file + ".tmp"));
    EXPECT_EQ("", ReadFile(file + ".tmp"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::WriteIpPara(): Write 10.0.0.1 to address"));
    EXPECT_EQ(1u, capture.Count(3, "Error open file " + file));
}

TEST_F(IpConfigFileAccessTest, UnopenableTemporaryFileFailsTheWrite)
{
    WriteFile(file, twoInterfaces);
    std::filesystem::create_directory(file + ".tmp");
    LogCapture capture(8);
    EXPECT_EQ(1, access.WriteIpPara("eth0", "address", "10.0.0.1"));
    EXPECT_EQ(twoInterfaces, ReadFile(file));
    EXPECT_EQ(1u, capture.Count(3, "Error open file " + file + ".tmp"));
    EXPECT_EQ(0u, capture.Count(3, "Error open file " + file));
}

// A temporary file cut short (disk full) must not replace the real one.
TEST_F(IpConfigFileAccessTest, FailedWriteOfTheTemporaryFileKeepsTheFile)
{
    if (!Exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full";
    }
    WriteFile(file, twoInterfaces);
    std::filesystem::create_symlink("/dev/full", file + ".tmp");
    LogCapture capture(8);
    EXPECT_EQ(1, access.WriteIpPara("eth0", "address", "10.0.0.1"));
    EXPECT_EQ(twoInterfaces, ReadFile(file));
    EXPECT_EQ(1u, capture.Count(3, "Error write file " + file + ".tmp"));
    EXPECT_FALSE(Exists(file + ".tmp"));
}

// The line counter is 8 bits wide and never reset: after 256 lines of one
// block the range of four lines opens again.
TEST_F(IpConfigFileAccessTest, LineCounterWrapsAfter255)
{
    auto blockWithKeyAt = [](int keyLine) {
        std::string content = "iface eth0 inet static\n";
        for (int line = 1; line <= 300; ++line) {
            content += line == keyLine ? "    netmask 255.0.0.0\n" : "    up true\n";
        }
        return content;
    };
    // Line 256 of the block has the counter 0 (like the header), lines 257 to
    // 260 have 1 to 4.
    for (int keyLine : {5, 255, 256, 261}) {
        WriteFile(file, blockWithKeyAt(keyLine));
        EXPECT_EQ(1, access.WriteIpPara("eth0", "netmask", "255.255.0.0")) << keyLine;
    }
    for (int keyLine : {257, 260}) {
        const std::string content = blockWithKeyAt(keyLine);
        WriteFile(file, content);
        EXPECT_EQ(0, access.WriteIpPara("eth0", "netmask", "255.255.0.0")) << keyLine;
        std::string expected = content;
        const std::string old = "    netmask 255.0.0.0\n";
        expected.replace(expected.find(old), old.size(), "    netmask 255.255.0.0\n");
        EXPECT_EQ(expected, ReadFile(file)) << keyLine;
    }
}

// The method word: compared without its last two characters, and replaced
// over a count measured from the line's start.
struct MethodCase {
    const char* line;
    const char* method;
    const char* result;
};

TEST(IpConfigMethodWord, ReplacementCounts)
{
    const IpConfigFileAccess access(ParameterOrder(), "/nonexistent/interfaces");
    const MethodCase cases[] = {
        {"iface eth0 inet dhcp", "static", "iface eth0 inet static"},
        {"iface eth0 inet static", "dhcp", "iface eth0 inet dhcp"},
        {"iface eth0 inet manual", "dhcp", "iface eth0 inet dhcp"},
        // "dhcp" is compared as "dh": equal, so nothing changes.
        {"iface eth0 inet dhcp", "dh", "iface eth0 inet dhcp"},
        {"iface eth0 inet dhcp # x", "static", "iface eth0 inet static"},
        {"iface eth0 inet dhcp # DHCP on the service port", "static", "iface eth0 inet staticservice port"},
        // Nothing behind the marker, or no marker at all.
        {"iface eth0 inet ", "static", "iface eth0 inet "},
        {"iface eth0 inet6 auto", "static", "iface eth0 inet6 auto"},
        {"iface eth0", "static", "iface eth0"},
        // A one-character word: the count wraps and the whole rest is compared.
        {"iface eth0 inet x", "static", "iface eth0 inet static"},
        {"iface eth0 inet x", "x", "iface eth0 inet x"},
        // A blank right behind the marker: an empty word.
        {"iface eth0 inet  dhcp", "static", "iface eth0 inet static"},
        // Only the first marker counts.
        {"iface eth0 inet dhcp inet manual", "static", "iface eth0 inet static"},
    };
    for (const MethodCase& c : cases) {
        BasicString line(c.line);
        access.SetAddressAssignmentMethod(line, c.method);
        EXPECT_EQ(c.result, line) << c.line << " <- " << c.method;
    }
}

} // namespace
