// Golden files: each directory under golden/ holds an interfaces file
// ("input"), one WriteIpPara call ("call": interface, key, value, result) and
// the exact file that must result ("expected"; absent when the file must stay
// byte for byte as it was).
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::Test::IpConfig::Exists;
using Zel::Test::IpConfig::ParameterOrder;
using Zel::Test::IpConfig::ReadFile;
using Zel::Test::IpConfig::TempDir;
using Zel::Test::IpConfig::WriteFile;

const std::filesystem::path goldenRoot = ZEL_IPCONFIG_GOLDEN_DIR;

struct GoldenCall {
    std::string interfaceName;
    std::string key;
    std::string value;
    int result = -1;
};

// "field rest-of-line" per line; the value may hold blanks.
GoldenCall ReadCall(const std::filesystem::path& file)
{
    std::map<std::string, std::string> fields;
    std::istringstream in(ReadFile(file.string()));
    std::string line;
    while (std::getline(in, line)) {
        const std::size_t blank = line.find(' ');
        fields[line.substr(0, blank)] = blank == std::string::npos ? std::string() : line.substr(blank + 1);
    }
    GoldenCall call;
    call.interfaceName = fields.at("interface");
    call.key = fields.at("key");
    call.value = fields.at("value");
    call.result = std::stoi(fields.at("result"));
    return call;
}

std::vector<std::string> GoldenCases()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(goldenRoot)) {
        if (entry.is_directory()) {
            names.push_back(entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class IpConfigGolden : public ::testing::TestWithParam<std::string> {};

TEST_P(IpConfigGolden, OneWriteGivesTheExpectedFileAndResult)
{
    const std::filesystem::path dir = goldenRoot / GetParam();
    const GoldenCall call = ReadCall(dir / "call");
    const std::string input = ReadFile((dir / "input").string());
    const bool changes = Exists((dir / "expected").string());
    const std::string expected = changes ? ReadFile((dir / "expected").string()) : input;

    TempDir temp;
    const std::string file = temp.File("interfaces");
    WriteFile(file, input);
    const IpConfigFileAccess access(ParameterOrder(), file);

    EXPECT_EQ(call.result, access.WriteIpPara(call.interfaceName, call.key, call.value));
    EXPECT_EQ(expected, ReadFile(file));
    EXPECT_FALSE(Exists(file + ".tmp")) << "the temporary file must be gone after the write";
}

INSTANTIATE_TEST_SUITE_P(Files, IpConfigGolden, ::testing::ValuesIn(GoldenCases()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(IpConfigGoldenSet, EveryCaseIsComplete)
{
    const auto cases = GoldenCases();
    ASSERT_GE(cases.size(), 20u);
    for (const auto& name : cases) {
        const auto dir = goldenRoot / name;
        EXPECT_TRUE(Exists((dir / "input").string())) << name;
        const GoldenCall call = ReadCall(dir / "call");
        // A write that reports failure must leave the file alone, so such a
        // case has nothing to expect but its input.
        EXPECT_EQ(call.result == 0, Exists((dir / "expected").string())) << name;
    }
}

} // namespace
