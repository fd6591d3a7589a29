#include "PowerCutDisk.hpp"

#include "Sandbox.hpp"
#include "ScratchDirectory.hpp"

#include <linux/dm-ioctl.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Zel::Test {

namespace {

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), "power-cut disk: " + what);
}

// The output of a command that prints one word.
std::string Word(const std::string& command)
{
    std::string output = RunOutput(command);
    return output.substr(0, output.find('\n'));
}

} // namespace

// Made and removed with the system's tools, once per disk; a cut and a
// remount, hundreds of times per test under emulation, where every program
// started costs a tenth of a second, are the device mapper's and mount's
// system calls.
PowerCutDisk::PowerCutDisk(std::string directory, std::string mountOptions)
    : mountPoint(std::move(directory)), options(std::move(mountOptions))
{
    // Unique also where an earlier disk of this process could not be removed.
    static int disks = 0;
    name = "powercut-" + std::to_string(::getpid()) + "-" + std::to_string(++disks);
    if (Run("dmsetup version >/dev/null 2>&1") != 0) {
        throw std::runtime_error("power-cut disk: this kernel has no device mapper (BLK_DEV_DM, DM_FLAKEY)");
    }
    loop = Word("truncate -s 64M " + mountPoint + ".image && losetup -f --show " + mountPoint + ".image");
    sectors = Word("blockdev --getsz " + loop);
    // Without udev no one else makes the device's node.
    RunOutput("dmsetup create " + name + " --table '0 " + sectors + " flakey " + loop +
              " 0 180 0' && dmsetup mknodes " + name + " && mkfs.ext4 -q -F -E nodiscard /dev/mapper/" + name +
              " && mkdir -p " + mountPoint);
    Mount();
}

PowerCutDisk::~PowerCutDisk()
{
    ::umount2(mountPoint.c_str(), 0);
    Run("{ dmsetup remove " + name + "; losetup -d " + loop + "; rm -f " + mountPoint + ".image; } 2>/dev/null");
}

void PowerCutDisk::Cut() const
{
    Switch(false);
}

void PowerCutDisk::Remount() const
{
    if (::umount2(mountPoint.c_str(), 0) != 0) {
        Fail("cannot unmount " + mountPoint + ", is it still in use?");
    }
    WriteFile("/proc/sys/vm/drop_caches", "3\n");
    Switch(true);
    Mount();
}

// dm-flakey passing writes (up for 180 s, down for none) or dropping them (up
// for none, down for 180 s): both last longer than any test. The new table
// takes over on resume, which suspends the device first without freezing the
// file system (a freeze would write it out), so that what was not on the disk
// at this moment never gets there.
void PowerCutDisk::Switch(bool on) const
{
    struct {
        dm_ioctl header;
        dm_target_spec target;
        char parameters[256];
    } load{};
    dm_ioctl resume{};
    for (dm_ioctl* request : {&load.header, &resume}) {
        request->version[0] = DM_VERSION_MAJOR;
        name.copy(request->name, sizeof request->name - 1);
    }
    load.header.data_size = sizeof load;
    load.header.data_start = offsetof(decltype(load), target);
    load.header.target_count = 1;
    load.target.length = std::stoull(sectors);
    std::snprintf(load.target.target_type, sizeof load.target.target_type, "flakey");
    std::snprintf(load.parameters, sizeof load.parameters, on ? "%s 0 180 0" : "%s 0 0 180 1 drop_writes",
                  loop.c_str());
    resume.data_size = sizeof resume;
    resume.flags = DM_SKIP_LOCKFS_FLAG;
    const int control = ::open("/dev/mapper/control", O_RDWR | O_CLOEXEC);
    const bool switched =
        control >= 0 && ::ioctl(control, DM_TABLE_LOAD, &load) == 0 && ::ioctl(control, DM_DEV_SUSPEND, &resume) == 0;
    const int error = errno;
    ::close(control);
    errno = error;
    if (!switched) {
        Fail(std::string("cannot switch the power ") + (on ? "on" : "off"));
    }
}

void PowerCutDisk::Mount() const
{
    if (::mount(("/dev/mapper/" + name).c_str(), mountPoint.c_str(), "ext4", 0, options.c_str()) != 0) {
        Fail("cannot mount " + mountPoint + " with '" + options + "'");
    }
}

} // namespace Zel::Test
