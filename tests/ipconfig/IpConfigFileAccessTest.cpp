// Reading values and the refusal of values that cannot be written, on
// temporary interfaces files (a missing file is a module kernel test). The write rules are the golden files;
// links, mounts and failures of the temporary file are the writer kernel tests.
#include "MemoryLogSink.hpp"
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using Zel::Test::LogCapture;
using namespace Zel::Test::IpConfig;

const std::string twoInterfaces = "auto lo\niface lo inet loopback\n\n"
                                  "auto eth0\niface eth0 inet static\n    address 192.168.1.10\n"
                                  "    netmask 255.255.255.0\n    gateway 192.168.1.1\n\n"
                                  "allow-hotplug eth1\niface eth1 inet dhcp\n";

class IpConfigFileAccessTest : public ::testing::Test {
protected:
    ScratchDirectory temp;
    std::string file = temp.Path("interfaces");
    IpConfigFileAccess access{parameterOrder, file};
};

struct ReadCase {
    const char* name;
    std::string content;
    const char* interfaceName;
    const char* key;
    std::string value; // what "unchanged" becomes; result 1 when it stays
};

const std::string unchanged = "unchanged";
const std::string outOfRange = "<std::out_of_range, nothing logged>";
const std::string eth0Static = "iface eth0 inet static\n";

class IpConfigRead : public IpConfigFileAccessTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(IpConfigRead, FindsTheValueByTheLineRules)
{
    const ReadCase& c = GetParam();
    WriteFile(file, c.content);
    BasicString value(unchanged);
    if (c.value == outOfRange) {
        LogCapture capture(8);
        EXPECT_THROW(access.ReadIpPara(c.interfaceName, c.key, value), std::out_of_range);
        EXPECT_TRUE(capture.Records().empty());
        return;
    }
    EXPECT_EQ(c.value == unchanged ? 1 : 0, access.ReadIpPara(c.interfaceName, c.key, value));
    EXPECT_EQ(c.value, value);
}

const ReadCase readCases[] = {
    {"address", twoInterfaces, "eth0", "address", "192.168.1.10"},
    {"gateway_last_line_of_block", twoInterfaces, "eth0", "gateway", "192.168.1.1"},
    {"method_word", twoInterfaces, "eth1", "inet", "dhcp"},
    {"key_missing_in_block", twoInterfaces, "eth1", "address", unchanged},
    {"no_block_for_interface", twoInterfaces, "eth2", "address", unchanged},
    {"value_ends_at_first_blank", eth0Static + "    address 10.0.0.1 # lab\n", "eth0", "address", "10.0.0.1"},
    {"several_blanks_after_key", eth0Static + "    netmask      255.0.0.0\n", "eth0", "netmask", "255.0.0.0"},
    {"tab_is_not_white_space", eth0Static + "    address\t10.0.0.1 x\n", "eth0", "address", "\t10.0.0.1"},
    {"carriage_return_stays", "iface eth0 inet static\r\n    address 10.0.0.1\r\n", "eth0", "address", "10.0.0.1\r"},
    {"dns_servers_to_line_end", eth0Static + "    dns-nameservers 1.1.1.1  8.8.8.8 \n", "eth0", "dns-nameservers",
     "1.1.1.1  8.8.8.8 "},
    {"inet6_gives_6", "iface eth0 inet6 static\n", "eth0", "inet", "6"},
    {"hwaddress_answers_address", eth0Static + "    hwaddress ether 02:00:00:00:00:01\n    address 1.2.3.4\n", "eth0",
     "address", "ether"},
    {"fifth_line_found", eth0Static + "    mtu 1500\n    up a\n    up b\n    up c\n    netmask 255.0.0.0\n", "eth0",
     "netmask", "255.0.0.0"},
    {"comment_lines_searched", "iface eth0 inet dhcp\n# address 10.9.9.9\n", "eth0", "address", "10.9.9.9"},
    {"comment_with_iface_ends_block", "iface eth0 inet dhcp\n#iface eth1 inet static\n    address 10.1.1.1\n", "eth0",
     "address", unchanged},
    {"name_prefix_opens_longer_name", "iface eth10 inet static\n    address 10.10.0.1\n", "eth1", "address",
     "10.10.0.1"},
    {"second_block_reopens",
     "iface eth0 inet dhcp\niface eth1 inet static\n    address 10.1.1.1\n"
     "iface eth0 inet6 auto\n    address fd::1\n",
     "eth0", "address", "fd::1"},
    {"first_occurrence_wins", eth0Static + "    mtu 1400\niface eth0 inet6 static\n    mtu 1280\n", "eth0", "mtu",
     "1400"},
    {"header_line_is_searched", "iface eth0 inet static # gateway 10.0.0.254\n", "eth0", "gateway", "10.0.0.254"},
    {"last_line_without_newline", eth0Static + "    gateway 192.168.0.1", "eth0", "gateway", "192.168.0.1"},
    // Bounds-checked on purpose: a key with nothing but blanks behind it.
    {"key_ends_line", eth0Static + "    address\n", "eth0", "address", outOfRange},
    {"key_and_blanks_end_line", eth0Static + "    address   \n", "eth0", "address", outOfRange},
    {"key_ends_file", eth0Static + "    address", "eth0", "address", outOfRange},
    {"lines_before_first_iface", "    address 1.1.1.1\niface eth0 inet dhcp\n", "eth0", "address", unchanged},
};

INSTANTIATE_TEST_SUITE_P(Lines, IpConfigRead, ::testing::ValuesIn(readCases),
                         [](const ::testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST_F(IpConfigFileAccessTest, ReadAndWriteTraceValueAndKey)
{
    WriteFile(file, twoInterfaces);
    LogCapture capture(8);
    BasicString value;
    BasicString missing("keep");
    ASSERT_EQ(0, access.ReadIpPara("eth0", "netmask", value));
    ASSERT_EQ(1, access.ReadIpPara("eth0", "mtu", missing));
    ASSERT_EQ(0, access.WriteIpPara("eth0", "gateway", "192.168.1.254"));
    ASSERT_EQ(3u, capture.Records().size());
    EXPECT_EQ("Zel.Hardware.Modules.Commons.Linux.IpConfigFileAccess", capture.Records()[0].channel);
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::ReadIpPara(): Read 255.255.255.0 from netmask"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::ReadIpPara(): Read keep from mtu"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::WriteIpPara(): Write 192.168.1.254 to gateway"));
}

// A value that could start a line of its own ("up" lines run as root) or cut
// one short, or one that leaves the key at its line's end, is refused before
// anything is opened.
TEST_F(IpConfigFileAccessTest, UnwritableValuesAreRefused)
{
    const std::string lineBreak = "it contains a line feed, carriage return or NUL character";
    const std::string blank = "it is empty or blank";
    for (const auto& [value, reason] :
         std::vector<std::pair<std::string, std::string>>{{"10.0.0.1\n    up /bin/sh -c id", lineBreak},
                                                          {"10.0.0.1\rup id", lineBreak},
                                                          {std::string("10.0.0.1\0x", 10), lineBreak},
                                                          {"\n", lineBreak},
                                                          {"", blank},
                                                          {"   ", blank},
                                                          {" \t", blank}}) {
        for (const std::string key : {"address", "inet"}) {
            WriteFile(file, twoInterfaces);
            LogCapture capture(8);
            EXPECT_EQ(1, access.WriteIpPara("eth0", key, value));
            EXPECT_EQ(twoInterfaces, ReadFile(file));
            EXPECT_FALSE(Exists(file + ".tmp"));
            ASSERT_EQ(1u, capture.Records().size());
            EXPECT_EQ(1u,
                      capture.Count(3, "IpConfigFileAccess::WriteIpPara(): Refused value for " + key + ": " + reason));
        }
    }
}

} // namespace
