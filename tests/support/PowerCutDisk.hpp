// An ext4 file system whose power can be cut the way file-system testers cut
// it: on a loop device behind dm-flakey, which at a cut starts dropping every
// write while reporting success, as a board's page cache goes with its power.
//
//   PowerCutDisk disk("/tmp/x/disk", "noauto_da_alloc");
//   ... write ...;  disk.Cut();  ... stop the writers ...;  disk.Remount();  ... check ...
//
// Needs root, a kernel with the device mapper (BLK_DEV_DM, DM_FLAKEY), loop
// devices and ext4, and losetup, blockdev, dmsetup and mkfs.ext4. Not for
// several threads at once.
#pragma once

#include <string>

namespace Zel::Test {

class PowerCutDisk {
public:
    // A fresh 64 MiB ext4 mounted at `directory` (created) with the mount
    // options given ("" for the defaults); its image lies beside it. Throws
    // std::runtime_error naming the step that failed.
    PowerCutDisk(std::string directory, std::string mountOptions);
    // Unmounts, and removes the devices and the image.
    ~PowerCutDisk();
    PowerCutDisk(const PowerCutDisk&) = delete;
    PowerCutDisk& operator=(const PowerCutDisk&) = delete;

    // Power off: from now on no write reaches the disk.
    void Cut() const;
    // Power back: unmounts (nothing may use the disk any more), drops the
    // caches, lets writes through again and mounts, which replays the
    // journal as a boot does. Throws std::runtime_error when a step fails.
    void Remount() const;

private:
    void Switch(bool on) const;
    void Mount() const;

    std::string mountPoint, options, name, loop, sectors;
};

} // namespace Zel::Test
