// Golden files: each directory under golden/ holds an interfaces file
// ("input"), one WriteIpPara call ("call": the lines "interface <name>",
// "key <key>", "value <rest of line>", "result <code>") and the exact file
// that must result ("expected"; absent when the write fails and the file must
// stay byte for byte as it was).
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using namespace Zel::Test::IpConfig;
namespace fs = std::filesystem;

const fs::path goldenRoot = ZEL_IPCONFIG_GOLDEN_DIR;

std::vector<std::string> GoldenCases()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(goldenRoot)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class IpConfigGolden : public ::testing::TestWithParam<std::string> {};

TEST_P(IpConfigGolden, OneWriteGivesTheExpectedFileAndResult)
{
    const fs::path dir = goldenRoot / GetParam();
    std::istringstream call(ReadFile((dir / "call").string()));
    std::string fields[4]; // interface, key, value, result
    for (std::string& field : fields) {
        std::string line;
        std::getline(call, line);
        field = line.substr(line.find(' ') + 1);
    }
    const int result = std::stoi(fields[3]);
    const std::string input = ReadFile((dir / "input").string());
    ASSERT_EQ(result == 0, Exists((dir / "expected").string())) << "only a successful write has an expected file";
    const std::string expected = result == 0 ? ReadFile((dir / "expected").string()) : input;

    ScratchDirectory temp;
    const std::string file = temp.Path("interfaces");
    WriteFile(file, input);
    EXPECT_EQ(result, IpConfigFileAccess(parameterOrder, file).WriteIpPara(fields[0], fields[1], fields[2]));
    EXPECT_EQ(expected, ReadFile(file));
    EXPECT_FALSE(Exists(file + ".tmp"));
}

INSTANTIATE_TEST_SUITE_P(Files, IpConfigGolden, ::testing::ValuesIn(GoldenCases()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
