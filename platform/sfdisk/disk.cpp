#include "platform/sfdisk/disk.h"

#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static int blkpg(int fd, int operation, blkpg_partition *partition)
{
    blkpg_ioctl_arg argument = {operation, 0, sizeof(*partition), partition};
    return ioctl(fd, BLKPG, &argument);
}

static bool is_partition(dev_t device)
{
    char path[64];
    snprintf(path, sizeof(path), "/sys/dev/block/%u:%u/partition", major(device), minor(device));
    return access(path, F_OK) == 0;
}

static Fault block_device_measure(const struct stat &status, Disk *disk)
{
    int sector_bytes = 0;
    uint64_t bytes = 0;
    if (is_partition(status.st_rdev))
        return Fault::kNotADisk;
    if (ioctl(disk->fd.get(), BLKSSZGET, &sector_bytes) != 0 || ioctl(disk->fd.get(), BLKGETSIZE64, &bytes) != 0)
        return Fault::kRead;
    if (sector_bytes != kSectorBytes)
        return Fault::kSectorSize;
    disk->sectors = bytes / kSectorBytes;
    disk->request = blkpg;
    return Fault::kNone;
}

Fault disk_open(const char *path, DiskAccess access, Disk *disk)
{
    const bool writes = access == DiskAccess::kWrite;
    disk->fd.reset(open(path, (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!disk->fd || fstat(disk->fd.get(), &status) != 0)
        return Fault::kOpen;
    if (S_ISBLK(status.st_mode)) {
        if (const Fault fault = block_device_measure(status, disk); fault != Fault::kNone)
            return fault;
    } else if (S_ISREG(status.st_mode)) {
        disk->sectors = static_cast<uint64_t>(status.st_size) / kSectorBytes;
    }
    if (disk->sectors == 0)
        return Fault::kNotADisk;
    if (writes && flock(disk->fd.get(), LOCK_EX) != 0)
        return Fault::kOpen;
    return Fault::kNone;
}

Fault disk_read(const Disk &disk, uint64_t sector, std::span<uint8_t> bytes)
{
    if (sector >= disk.sectors || bytes.size() / kSectorBytes > disk.sectors - sector) {
        errno = EINVAL;
        return Fault::kRead;
    }
    auto at = static_cast<off_t>(sector * kSectorBytes);
    while (!bytes.empty()) {
        const ssize_t count = pread(disk.fd.get(), bytes.data(), bytes.size(), at);
        if (count <= 0) {
            errno = count == 0 ? EIO : errno; // the disk ends before its own size
            return Fault::kRead;
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
        at += count;
    }
    return Fault::kNone;
}

Fault disk_write(const Disk &disk, uint64_t sector, std::span<const uint8_t> bytes)
{
    if (sector >= disk.sectors || bytes.size() / kSectorBytes > disk.sectors - sector) {
        errno = EINVAL;
        return Fault::kWrite;
    }
    auto at = static_cast<off_t>(sector * kSectorBytes);
    while (!bytes.empty()) {
        const ssize_t count = pwrite(disk.fd.get(), bytes.data(), bytes.size(), at);
        if (count <= 0) {
            errno = count == 0 ? ENOSPC : errno;
            return Fault::kWrite;
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
        at += count;
    }
    return Fault::kNone;
}

Fault disk_sync(const Disk &disk)
{
    return fsync(disk.fd.get()) == 0 ? Fault::kNone : Fault::kWrite;
}
