// File::Copy and File::Delete: a replacing copy keeps the destination's
// permission bits and owner and renames a complete copy over it (an open
// reader keeps the old content); a failed one leaves the directory as it was
// and closes what it opened.
#include "Checks.hpp"
#include "ScratchDirectory.hpp"

#include <Zel/System/Commons/Io/File.hpp>

#include <fmt/format.h>

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

// "<mode> <uid>:<gid>" in octal and decimal.
std::string ModeAndOwner(const std::string& path)
{
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return fmt::format("{:o} {}:{}", info.st_mode & 07777, info.st_uid, info.st_gid);
}

std::set<std::string> Entries(const Zel::Test::ScratchDirectory& scratch)
{
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.Path(""))) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST(FileCopy, AFailedCopyLeavesTheDirectoryAsItWasAReplacingOneRenamesACompleteCopyKeepingModeAndOwner)
{
    const Zel::Test::ScratchDirectory scratch("zel-file");
    const std::string source = scratch.Write("source", std::string(100000, 'n'));
    const std::string destination = scratch.Write("interfaces", "old");
    std::filesystem::permissions(source, std::filesystem::perms(0600));
    std::filesystem::permissions(destination, std::filesystem::perms(0640));

    // A directory in the way of the rename fails once the temporary file exists, which is removed. A link
    // to nothing is a destination that exists for a copy that must not overwrite.
    std::filesystem::create_directories(scratch.Path("busy/entry"));
    std::filesystem::create_symlink("nothing", scratch.Path("link"));
    const long descriptors = Zel::Test::OpenDescriptorCount();
    const struct {
        std::string from;
        std::string to;
        bool overwrite;
        bool atomic;
        int error; // 0: any
    } failures[] = {
        {source, destination, false, false, EEXIST},
        {source, destination, false, true, EEXIST},
        {scratch.Path("absent"), destination, true, true, ENOENT},
        {source, scratch.Path("absent/interfaces"), true, true, 0},
        {source, scratch.Path("absent/interfaces"), true, false, 0},
        {source, scratch.Path("busy"), true, true, 0},
        {source, scratch.Path("link"), false, false, EEXIST},
    };
    for (const auto& f : failures) {
        SCOPED_TRACE(f.from + " -> " + f.to + (f.overwrite ? " overwrite" : "") + (f.atomic ? " atomic" : ""));
        errno = 0;
        EXPECT_FALSE(File::Copy(f.from, f.to, f.overwrite, f.atomic));
        EXPECT_TRUE(f.error == 0 || errno == f.error) << errno;
        EXPECT_EQ(Zel::Test::ReadFile(destination), "old");
        EXPECT_THAT(Entries(scratch), UnorderedElementsAre("source", "interfaces", "busy", "link"));
        EXPECT_EQ(Zel::Test::OpenDescriptorCount(), descriptors) << "a descriptor was left open";
    }

    ASSERT_EQ(::chown(destination.c_str(), 4321, 4322), 0);
    const int reader = ::open(destination.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ASSERT_TRUE(File::Copy(source, destination, true, true));
    // Not rewritten in place: a reader that had it open still sees all of the old content.
    char buffer[16] = {};
    EXPECT_EQ(::pread(reader, buffer, sizeof buffer, 0), 3);
    EXPECT_STREQ(buffer, "old");
    ::close(reader);
    EXPECT_EQ(Zel::Test::ReadFile(destination), std::string(100000, 'n'));
    EXPECT_EQ(ModeAndOwner(destination), "640 4321:4322");
    EXPECT_EQ(ModeAndOwner(source).substr(0, 4), "600 ");
    EXPECT_THAT(Entries(scratch), UnorderedElementsAre("source", "interfaces", "busy", "link"));

    // A missing destination takes the source's permission bits.
    ASSERT_TRUE(File::Copy(source, scratch.Path("new"), true, true));
    EXPECT_EQ(ModeAndOwner(scratch.Path("new")).substr(0, 4), "600 ");

    EXPECT_TRUE(File::Delete(destination));
    EXPECT_FALSE(File::Exists(destination));
    errno = 0;
    EXPECT_FALSE(File::Delete(destination));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
