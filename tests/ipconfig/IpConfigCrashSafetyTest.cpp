// Crash safety of writing the interfaces file: the file is replaced as a
// whole, so a reader never sees a part of it, and a writer killed at any
// point leaves the old or the new content, never a truncated file. Writers
// are separate processes, as the framework's services and a tool editing the
// file would be.
#include "MemoryLogSink.hpp"
#include "TestFiles.hpp"

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess;
using namespace Zel::Test::IpConfig;

// Values of different lengths, so a file cut anywhere matches neither.
const char* const shortAddress = "10.0.0.1";
const char* const longAddress = "172.16.254.254";

std::string FileWithAddress(const std::string& address)
{
    return "# controller ports\nauto lo\niface lo inet loopback\n\nallow-hotplug eth0\niface eth0 inet static\n"
           "    address " + address + "\n    netmask 255.255.0.0\n    gateway 172.16.0.1\n"
           "    dns-nameservers 172.16.0.53 8.8.8.8\n\nallow-hotplug eth1\niface eth1 inet dhcp\n";
}

class IpConfigCrashSafety : public ::testing::Test {
protected:
    void SetUp() override { WriteFile(file, oldContent); }

    // Writes the two addresses in turn, `writes` times or until killed, and
    // reports each finished write with one byte on `progress` (when given).
    [[noreturn]] void Writer(int writes, int progress) const
    {
        for (int i = 0; writes < 0 || i < writes; ++i) {
            if (access.WriteIpPara("eth0", "address", i % 2 == 0 ? longAddress : shortAddress) != 0 ||
                (progress >= 0 && ::write(progress, "w", 1) != 1)) {
                _exit(1);
            }
        }
        _exit(0);
    }

    bool IsWhole(const std::string& content) const { return content == oldContent || content == newContent; }

    Zel::Test::LogCapture quiet{3};
    TempDir temp;
    std::string file = temp.File("interfaces");
    IpConfigFileAccess access{parameterOrder, file};
    std::string oldContent = FileWithAddress(shortAddress);
    std::string newContent = FileWithAddress(longAddress);
};

TEST_F(IpConfigCrashSafety, ReaderNeverSeesAPartialFileWhileWritesRepeat)
{
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        Writer(300, -1);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    int status = 0;
    long reads = 0;
    long bad = 0;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(writer, SIGKILL);
            ::waitpid(writer, &status, 0);
            FAIL() << "the writer did not finish in time";
        }
        ++reads;
        bad += IsWhole(ReadFile(file)) ? 0 : 1;
    }
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a write failed: " << status;
    EXPECT_EQ(0, bad) << "of " << reads << " reads";
    EXPECT_EQ(oldContent, ReadFile(file)) << "an even number of writes ends with the short address";
}

TEST_F(IpConfigCrashSafety, KilledWriterLeavesOldOrNewContentNeverATruncatedFile)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        int progress[2];
        ASSERT_EQ(0, ::pipe(progress));
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            ::close(progress[0]);
            Writer(-1, progress[1]);
        }
        ::close(progress[1]);
        // Let 0 to 3 writes complete, then kill the writer a random stretch
        // into the next one, checking the file meanwhile.
        for (int i = std::uniform_int_distribution<int>(0, 3)(random); i > 0; --i) {
            char done = 0;
            ASSERT_EQ(1, ::read(progress[0], &done, 1));
        }
        for (int i = std::uniform_int_distribution<int>(0, 400)(random); i > 0; --i) {
            ASSERT_TRUE(IsWhole(ReadFile(file))) << "round " << round << ", while the writer runs";
        }
        ASSERT_EQ(0, ::kill(writer, SIGKILL));
        int status = 0;
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        ::close(progress[0]);
        EXPECT_FALSE(WIFEXITED(status)) << "the writer ended by itself";
        ASSERT_TRUE(IsWhole(ReadFile(file))) << "round " << round;
    }
    // A later write works on whatever the killed writers left behind.
    EXPECT_EQ(0, access.WriteIpPara("eth0", "address", longAddress));
    EXPECT_EQ(newContent, ReadFile(file));
}

} // namespace
