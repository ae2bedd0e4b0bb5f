// Overwrites partitions with zeros from end to end, all at once, so that what is built on them starts from known bytes
// and a bad sector shows now.
//   usage: norvdd PARTITION ...
// /tmp/norvdd.<name> tells how far each is, in percent. Exit status 1 when any of them failed. A partition in use is
// refused.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"

namespace
{

constexpr size_t kBlockBytes = 1 << 20;
uint8_t zeros[kBlockBytes];

bool size_get(int fd, uint64_t *bytes)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return false;
    if (S_ISBLK(status.st_mode))
        return ioctl(fd, BLKGETSIZE64, bytes) == 0;
    *bytes = static_cast<uint64_t>(status.st_size);
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

UniqueFile progress_open(std::string_view path)
{
    char name[4096];
    path.remove_prefix(path.rfind('/') + 1);
    snprintf(name, sizeof(name), "/tmp/norvdd.%.*s", static_cast<int>(path.size()), path.data());
    return UniqueFile(fopen(name, "we"));
}

bool zeros_write(int fd, uint64_t bytes, FILE *progress)
{
    uint64_t told = UINT64_MAX;
    for (uint64_t done = 0; done < bytes;) {
        if (const uint64_t percent = done / (bytes / 100 + 1); percent != told && progress != nullptr) {
            told = percent;
            rewind(progress);
            fprintf(progress, "%" PRIu64 "\n", percent);
            fflush(progress);
        }
        const ssize_t count = write(fd, zeros, std::min<uint64_t>(bytes - done, kBlockBytes));
        if (count <= 0)
            return false;
        done += static_cast<uint64_t>(count);
    }
    return fsync(fd) == 0;
}

bool partition_zero(const char *path)
{
    const UniqueFd fd(open(path, O_WRONLY | O_EXCL | O_CLOEXEC));
    uint64_t bytes = 0;
    const UniqueFile progress = progress_open(path);
    if (fd && size_get(fd.get(), &bytes) && zeros_write(fd.get(), bytes, progress.get())) {
        if (progress) {
            rewind(progress.get());
            fputs("100\n", progress.get());
        }
        return true;
    }
    fprintf(stderr, "norvdd: %s: %s\n", path, strerror(errno));
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 2) {
        fputs("usage: norvdd PARTITION ...\n", stderr);
        return 2;
    }
    int status = 0;
    for (int index = 1; index < argc; index++) {
        const pid_t pid = fork();
        if (pid == 0)
            exit(partition_zero(argv[index]) ? 0 : 1);
        if (pid < 0) {
            perror("norvdd");
            status = 1;
        }
    }
    for (int child = 0; wait(&child) > 0;)
        if (child != 0)
            status = 1;
    return status;
}
