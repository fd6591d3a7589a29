// Crash safety of writing the interfaces file: the file is replaced as a
// whole, so a reader never sees a part of it, and a writer killed at any
// point leaves the old or the new content, never a truncated file. Writers
// are separate processes (fork), as the framework's services and a tool
// editing the file would be.
#include "MemoryLogSink.hpp"
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using Zel::System::Commons::BasicString;
using Zel::Test::LogCapture;
using Zel::Test::IpConfig::ParameterOrder;
using Zel::Test::IpConfig::ReadFile;
using Zel::Test::IpConfig::TempDir;
using Zel::Test::IpConfig::WriteFile;

// Values of different lengths, so a file cut anywhere matches neither.
const char* const shortAddress = "10.0.0.1";
const char* const longAddress = "172.16.254.254";

std::string FileWithAddress(const std::string& address)
{
    return "# controller ports\n"
           "auto lo\n"
           "iface lo inet loopback\n"
           "\n"
           "allow-hotplug eth0\n"
           "iface eth0 inet static\n"
           "    address " +
           address +
           "\n"
           "    netmask 255.255.0.0\n"
           "    gateway 172.16.0.1\n"
           "    dns-nameservers 172.16.0.53 8.8.8.8\n"
           "\n"
           "allow-hotplug eth1\n"
           "iface eth1 inet dhcp\n";
}

// Writes the two addresses in turn until killed or until `writes` are done;
// after each write one byte goes to `progress` (when given).
[[noreturn]] void WriterProcess(const IpConfigFileAccess& access, int writes, int progress)
{
    for (int i = 0; writes < 0 || i < writes; ++i) {
        if (access.WriteIpPara("eth0", "address", (i % 2 == 0) ? longAddress : shortAddress) != 0) {
            _exit(1);
        }
        if (progress >= 0) {
            const char done = 'w';
            if (::write(progress, &done, 1) != 1) {
                _exit(2);
            }
        }
    }
    _exit(0);
}

class IpConfigCrashSafety : public ::testing::Test {
protected:
    IpConfigCrashSafety()
        : file(temp.File("interfaces")), access(ParameterOrder(), file), oldContent(FileWithAddress(shortAddress)),
          newContent(FileWithAddress(longAddress))
    {
    }

    void SetUp() override
    {
        // A write of either address reproduces one of the two files exactly.
        WriteFile(file, oldContent);
        ASSERT_EQ(0, access.WriteIpPara("eth0", "address", longAddress));
        ASSERT_EQ(newContent, ReadFile(file));
        ASSERT_EQ(0, access.WriteIpPara("eth0", "address", shortAddress));
        ASSERT_EQ(oldContent, ReadFile(file));
    }

    bool IsWhole(const std::string& content) const { return content == oldContent || content == newContent; }

    LogCapture quiet{3};
    TempDir temp;
    std::string file;
    IpConfigFileAccess access;
    std::string oldContent;
    std::string newContent;
};

TEST_F(IpConfigCrashSafety, ReaderNeverSeesAPartialFileWhileWritesRepeat)
{
    constexpr int writes = 300;
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        WriterProcess(access, writes, -1);
    }

    const IpConfigFileAccess reader(ParameterOrder(), file);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    int status = 0;
    long reads = 0;
    long partial = 0;
    long badValues = 0;
    bool sawOld = false;
    bool sawNew = false;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(writer, SIGKILL);
            ::waitpid(writer, &status, 0);
            FAIL() << "the writer did not finish " << writes << " writes in time";
        }
        const std::string content = ReadFile(file);
        ++reads;
        partial += IsWhole(content) ? 0 : 1;
        sawOld = sawOld || content == oldContent;
        sawNew = sawNew || content == newContent;
        BasicString address;
        if (reader.ReadIpPara("eth0", "address", address) != 0 ||
            (address != shortAddress && address != longAddress)) {
            ++badValues;
        }
    }
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(0, WEXITSTATUS(status)) << "a write in the writer process failed";
    EXPECT_EQ(0, partial) << "of " << reads << " reads";
    EXPECT_EQ(0, badValues) << "of " << reads << " reads";
    EXPECT_GT(reads, 0);
    EXPECT_TRUE(sawOld || sawNew);
    EXPECT_EQ(oldContent, ReadFile(file)) << "an even number of writes ends with the short address";
}

TEST_F(IpConfigCrashSafety, KilledWriterLeavesOldOrNewContentNeverATruncatedFile)
{
    constexpr int kills = 60;
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);

    int finished = 0;
    for (int round = 0; round < kills; ++round) {
        int progress[2];
        ASSERT_EQ(0, ::pipe(progress));
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            ::close(progress[0]);
            WriterProcess(access, -1, progress[1]);
        }
        ::close(progress[1]);

        // Let a random number of writes complete, then kill the writer a
        // random stretch into the next one: reading the file meanwhile checks
        // it and lets the writer run on.
        const int completeWrites = std::uniform_int_distribution<int>(0, 3)(random);
        for (int i = 0; i < completeWrites; ++i) {
            char done = 0;
            ASSERT_EQ(1, ::read(progress[0], &done, 1));
        }
        const int spin = std::uniform_int_distribution<int>(0, 400)(random);
        for (int i = 0; i < spin; ++i) {
            const std::string content = ReadFile(file);
            ASSERT_TRUE(IsWhole(content)) << "round " << round << ", while the writer runs";
        }
        ASSERT_EQ(0, ::kill(writer, SIGKILL));
        int status = 0;
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        ::close(progress[0]);
        finished += WIFEXITED(status) ? 1 : 0;

        const std::string content = ReadFile(file);
        ASSERT_TRUE(IsWhole(content)) << "round " << round << ": " << content.size() << " bytes";
    }
    EXPECT_EQ(0, finished) << "every writer is killed, none ends by itself";

    // A later write works on whatever the killed writers left behind.
    EXPECT_EQ(0, access.WriteIpPara("eth0", "address", longAddress));
    EXPECT_EQ(newContent, ReadFile(file));
}

} // namespace
