// File::Copy as the interfaces file is rewritten with it: the replacement
// keeps the destination's permission bits and owner, happens by renaming a
// complete copy over it (an open reader keeps the old content), and leaves
// nothing behind when it fails.
#include "ScratchDirectory.hpp"

#include <Zel/System/Commons/Io/File.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

namespace {

using ::testing::UnorderedElementsAre;
using Zel::System::Commons::Io::File;

class FileCopy : public ::testing::Test {
protected:
    static void Write(const std::string& path, const std::string& content, mode_t mode = 0644)
    {
        Zel::Test::WriteFile(path, content);
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
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
        for (const auto& entry : std::filesystem::directory_iterator(scratch.Path(""))) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    Zel::Test::ScratchDirectory scratch{"zel-file"};
    const std::string dir = scratch.Path("").substr(0, scratch.Path("").size() - 1);
    const std::string source = scratch.Path("source");
    const std::string destination = scratch.Path("interfaces");
};

TEST_F(FileCopy, ReplacingRenamesACompleteCopyKeepingTheDestinationsModeAndOwner)
{
    Write(source, std::string(100000, 'n'), 0600);
    Write(destination, "old", 0640);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(destination.c_str(), 4321, 4322), 0);
    }
    const int reader = ::open(destination.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(reader, 0);

    ASSERT_TRUE(File::Copy(source, destination, true, true));

    // Not rewritten in place: a reader that had it open still sees all of the
    // old content and none of the new.
    char buffer[16] = {};
    EXPECT_EQ(::pread(reader, buffer, sizeof buffer, 0), 3);
    EXPECT_STREQ(buffer, "old");
    ::close(reader);
    const struct stat replaced = Stat(destination);
    EXPECT_EQ(Zel::Test::ReadFile(destination), std::string(100000, 'n'));
    EXPECT_EQ(replaced.st_mode & 07777, 0640U);
    EXPECT_EQ(Stat(source).st_mode & 07777, 0600U);
    if (root) {
        EXPECT_EQ(replaced.st_uid, 4321U);
        EXPECT_EQ(replaced.st_gid, 4322U);
    }
    EXPECT_THAT(Entries(), UnorderedElementsAre("source", "interfaces"));

    // A missing destination takes the source's permission bits.
    ASSERT_TRUE(File::Copy(source, dir + "/new", true, true));
    EXPECT_EQ(Stat(dir + "/new").st_mode & 07777, 0600U);
}

TEST_F(FileCopy, AFailedCopyLeavesTheDirectoryAsItWas)
{
    Write(source, "new");
    Write(destination, "old");
    const struct {
        std::string from;
        std::string to;
        bool overwrite;
        bool atomic;
        int error; // 0: any
    } failures[] = {
        {source, destination, false, false, EEXIST},          {source, destination, false, true, EEXIST},
        {dir + "/absent", destination, true, true, ENOENT},   {source, dir + "/absent/interfaces", true, true, 0},
        {source, dir + "/absent/interfaces", true, false, 0},
    };
    for (const auto& f : failures) {
        SCOPED_TRACE(f.from + " -> " + f.to + (f.overwrite ? " overwrite" : "") + (f.atomic ? " atomic" : ""));
        errno = 0;
        EXPECT_FALSE(File::Copy(f.from, f.to, f.overwrite, f.atomic));
        if (f.error != 0) {
            EXPECT_EQ(errno, f.error);
        }
        EXPECT_EQ(Zel::Test::ReadFile(destination), "old");
        EXPECT_THAT(Entries(), UnorderedElementsAre("source", "interfaces"));
    }

    // A copy that fails once its temporary file exists (a directory in the
    // way of the rename) removes that file.
    std::filesystem::create_directories(dir + "/busy/entry");
    EXPECT_FALSE(File::Copy(source, dir + "/busy", true, true));
    EXPECT_THAT(Entries(), UnorderedElementsAre("source", "interfaces", "busy"));

    EXPECT_TRUE(File::Delete(destination));
    EXPECT_FALSE(File::Exists(destination));
    errno = 0;
    EXPECT_FALSE(File::Delete(destination));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
