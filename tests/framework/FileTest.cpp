// File::Copy as the interfaces file is rewritten with it: the replacement
// keeps the destination's permission bits and owner, happens by renaming a
// complete copy over it (an open reader keeps the old content), and leaves
// nothing behind when it fails.
#include <Zel/System/Commons/Io/File.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

using Zel::System::Commons::Io::File;
using ::testing::UnorderedElementsAre;

class FileCopy : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/zel-file-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
        source = dir + "/source";
        destination = dir + "/interfaces";
    }

    void TearDown() override { std::filesystem::remove_all(dir); }

    static void Write(const std::string& path, const std::string& content, mode_t mode)
    {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    }

    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static struct stat Stat(const std::string& path)
    {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
        return info;
    }

    std::set<std::string> Entries() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    std::string dir;
    std::string source;
    std::string destination;
};

TEST_F(FileCopy, ReplacingKeepsTheDestinationsPermissionBits)
{
    Write(source, "auto eth0\niface eth0 inet dhcp\n", 0600);
    Write(destination, "old\n", 0644);

    ASSERT_TRUE(File::Copy(source, destination, true, true));

    EXPECT_EQ(Read(destination), "auto eth0\niface eth0 inet dhcp\n");
    EXPECT_EQ(Stat(destination).st_mode & 07777, 0644U);
    EXPECT_EQ(Stat(source).st_mode & 07777, 0600U);
    EXPECT_THAT(Entries(), UnorderedElementsAre("source", "interfaces"));
}

TEST_F(FileCopy, ReplacingRenamesACompleteCopyOverTheDestination)
{
    Write(source, std::string(100000, 'n'), 0644);
    Write(destination, "old", 0640);
    const int reader = ::open(destination.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    const ino_t oldInode = Stat(destination).st_ino;

    ASSERT_TRUE(File::Copy(source, destination, true, true));

    // The old file was not rewritten in place: a reader that had it open
    // still sees all of the old content and none of the new.
    char buffer[16] = {};
    EXPECT_EQ(::pread(reader, buffer, sizeof buffer, 0), 3);
    EXPECT_STREQ(buffer, "old");
    ::close(reader);
    EXPECT_NE(Stat(destination).st_ino, oldInode);
    EXPECT_EQ(Read(destination), std::string(100000, 'n'));
    EXPECT_EQ(Stat(destination).st_mode & 07777, 0640U);
}

TEST_F(FileCopy, ReplacingKeepsTheDestinationsOwner)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing a file's owner needs root";
    }
    Write(source, "new", 0644);
    Write(destination, "old", 0644);
    ASSERT_EQ(::chown(destination.c_str(), 4321, 4322), 0);

    ASSERT_TRUE(File::Copy(source, destination, true, true));

    EXPECT_EQ(Stat(destination).st_uid, 4321U);
    EXPECT_EQ(Stat(destination).st_gid, 4322U);
}

TEST_F(FileCopy, AMissingDestinationIsCreatedWithTheSourcesPermissionBits)
{
    Write(source, "content", 0604);

    ASSERT_TRUE(File::Copy(source, destination, true, true));

    EXPECT_EQ(Read(destination), "content");
    EXPECT_EQ(Stat(destination).st_mode & 07777, 0604U);
}

TEST_F(FileCopy, WithoutOverwriteAnExistingDestinationIsLeftAlone)
{
    Write(source, "new", 0644);
    Write(destination, "old", 0644);

    for (const bool atomic : {false, true}) {
        errno = 0;
        EXPECT_FALSE(File::Copy(source, destination, false, atomic));
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(Read(destination), "old");
    }
    EXPECT_THAT(Entries(), UnorderedElementsAre("source", "interfaces"));
}

TEST_F(FileCopy, AMissingSourceFailsAndLeavesTheDestinationAsItWas)
{
    Write(destination, "old", 0644);

    errno = 0;
    EXPECT_FALSE(File::Copy(dir + "/absent", destination, true, true));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(Read(destination), "old");
    EXPECT_THAT(Entries(), UnorderedElementsAre("interfaces"));
}

TEST_F(FileCopy, ADestinationInAMissingDirectoryFails)
{
    Write(source, "new", 0644);

    EXPECT_FALSE(File::Copy(source, dir + "/absent/interfaces", true, true));
    EXPECT_FALSE(File::Copy(source, dir + "/absent/interfaces", true, false));
    EXPECT_THAT(Entries(), UnorderedElementsAre("source"));
}

TEST_F(FileCopy, DeleteRemovesAFileOnce)
{
    Write(destination, "old", 0644);

    EXPECT_TRUE(File::Delete(destination));
    EXPECT_FALSE(File::Exists(destination));
    errno = 0;
    EXPECT_FALSE(File::Delete(destination));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
