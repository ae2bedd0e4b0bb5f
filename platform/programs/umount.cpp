// Unmounts, and with -k first kills what keeps a mount busy.
//   usage: umount [-flkrARn] TARGET ...   a mount point or what is mounted there
//          umount -a [-flkrn]             all but what the kernel itself provides
//   -f  by force        -l  detach now, finish when it is no longer busy       -r  else make it read-only
//   -R  with all mounts below       -A  wherever the same file system is mounted       -k  kill its users
// Exit status 32 when something is still mounted.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

#include "autocleanup/unique.h"

namespace
{

constexpr int kStillMounted = 32;
constexpr int kKillTries = 20;
constexpr useconds_t kKillWaitUs = 100'000;

struct Mount {
    dev_t device;
    std::string point, source, type;
    bool chosen = false;
};

struct Wishes {
    int flags = UMOUNT_NOFOLLOW;
    bool all = false, below = false, everywhere = false, kill_users = false, or_read_only = false;
};

// Blanks and the like are octal in mountinfo: "\040".
std::string unescape(std::string_view text)
{
    std::string plain;
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '\\' && at + 3 < text.size()) {
            plain.push_back(static_cast<char>(strtol(std::string(text.substr(at + 1, 3)).c_str(), nullptr, 8)));
            at += 3;
        } else {
            plain.push_back(text[at]);
        }
    }
    return plain;
}

// In the order of mounting.
std::vector<Mount> mounts_read()
{
    std::vector<Mount> mounts;
    const UniqueFile file(fopen("/proc/self/mountinfo", "re"));
    UniqueText line;
    size_t room = 0;
    while (file && getline(line.address(), &room, file.get()) > 0) {
        // 36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw
        unsigned major_number = 0;
        unsigned minor_number = 0;
        int point_at = 0;
        int point_end = 0;
        const char *rest = strstr(line.get(), " - ");
        if (rest == nullptr ||
            sscanf(line.get(), "%*d %*d %u:%u %*s %n%*s%n", &major_number, &minor_number, &point_at, &point_end) != 2)
            continue;
        const std::string_view behind(rest + 3);
        const size_t type_end = behind.find(' ');
        const std::string_view source = behind.substr(std::min(behind.size(), type_end + 1));
        mounts.push_back({makedev(major_number, minor_number),
                          unescape({line.get() + point_at, static_cast<size_t>(point_end - point_at)}),
                          unescape(source.substr(0, source.find(' '))), std::string(behind.substr(0, type_end))});
    }
    return mounts;
}

bool is_below(std::string_view path, std::string_view top)
{
    return path.starts_with(top) && (path.size() == top.size() || top == "/" || path[top.size()] == '/');
}

// The last mount at a place hides those before it, and is the one meant.
Mount *mount_find(std::vector<Mount> &mounts, const char *target)
{
    char path[PATH_MAX];
    if (realpath(target, path) == nullptr)
        snprintf(path, sizeof(path), "%s", target);
    const auto found = std::find_if(mounts.rbegin(), mounts.rend(), [&](const Mount &mount) {
        return mount.point == path || mount.source == path || mount.source == target;
    });
    return found == mounts.rend() ? nullptr : &*found;
}

void choose(std::vector<Mount> &mounts, Mount &top, const Wishes &wishes)
{
    top.chosen = true;
    if (wishes.everywhere)
        for (Mount &mount : mounts)
            mount.chosen |= mount.device == top.device;
    if (!wishes.below)
        return;
    for (const Mount &upper : mounts)
        for (Mount &mount : mounts)
            mount.chosen |= upper.chosen && is_below(mount.point, upper.point);
}

bool is_of_the_kernel(std::string_view type)
{
    static constexpr std::string_view kTypes[] = {"proc", "sysfs", "devtmpfs", "devpts", "rootfs", "cgroup2"};
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

bool link_leads_to(int directory, const char *name, dev_t device)
{
    struct stat status;
    return fstatat(directory, name, &status, 0) == 0 && status.st_dev == device;
}

bool maps_hold(int directory, dev_t device)
{
    const int fd = openat(directory, "maps", O_RDONLY | O_CLOEXEC);
    const UniqueFile file(fd < 0 ? nullptr : fdopen(fd, "r"));
    UniqueText line;
    size_t room = 0;
    while (file && getline(line.address(), &room, file.get()) > 0) {
        unsigned major_number = 0;
        unsigned minor_number = 0;
        if (sscanf(line.get(), "%*s %*s %*s %x:%x", &major_number, &minor_number) == 2 &&
            makedev(major_number, minor_number) == device)
            return true;
    }
    return false;
}

bool uses(int process, dev_t device)
{
    for (const char *name : {"cwd", "root", "exe"})
        if (link_leads_to(process, name, device))
            return true;
    const int fd = openat(process, "fd", O_DIRECTORY | O_RDONLY | O_CLOEXEC);
    const UniqueDir files(fd < 0 ? nullptr : fdopendir(fd));
    while (const dirent *entry = files ? readdir(files.get()) : nullptr)
        if (entry->d_name[0] != '.' && link_leads_to(fd, entry->d_name, device))
            return true;
    return maps_hold(process, device);
}

// Kills every process that has something open on the device; init and this process stay. What is mounted a second time
// from the root file system has the whole machine as its user: false, and nobody is killed for it.
bool users_kill(dev_t device)
{
    struct stat root;
    const UniqueDir processes(opendir("/proc"));
    if (!processes || stat("/", &root) != 0 || root.st_dev == device)
        return false;
    while (const dirent *entry = readdir(processes.get())) {
        const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
        if (pid <= 1 || pid == getpid())
            continue;
        const UniqueFd process(openat(dirfd(processes.get()), entry->d_name, O_DIRECTORY | O_RDONLY | O_CLOEXEC));
        if (process && uses(process.get(), device))
            kill(pid, SIGKILL);
    }
    return true;
}

bool unmount(const Mount &mount, const Wishes &wishes)
{
    for (int attempt = 0; umount2(mount.point.c_str(), wishes.flags) != 0; attempt++) {
        const int why = errno;
        if (why == EBUSY && wishes.kill_users && attempt < kKillTries && users_kill(mount.device)) {
            usleep(kKillWaitUs); // a killed process gives back what it holds a moment later
            continue;
        }
        if (wishes.or_read_only && ::mount(nullptr, mount.point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0)
            return true;
        fprintf(stderr, "umount: %s: %s\n", mount.point.c_str(), strerror(why));
        return false;
    }
    return true;
}

bool wishes_parse(int argc, char *argv[], Wishes *wishes)
{
    for (int letter; (letter = getopt(argc, argv, "afklnrAR")) != -1;) {
        switch (letter) {
        case 'a':
            wishes->all = true;
            break;
        case 'f':
            wishes->flags |= MNT_FORCE;
            break;
        case 'k':
            wishes->kill_users = true;
            break;
        case 'l':
            wishes->flags |= MNT_DETACH;
            break;
        case 'n': // there is no mtab to leave alone
            break;
        case 'r':
            wishes->or_read_only = true;
            break;
        case 'A':
            wishes->everywhere = true;
            break;
        case 'R':
            wishes->below = true;
            break;
        default:
            return false;
        }
    }
    return wishes->all == (optind == argc);
}

} // namespace

int main(int argc, char *argv[])
{
    Wishes wishes;
    if (!wishes_parse(argc, argv, &wishes)) {
        fputs("usage: umount [-flkrARn] TARGET ...\n       umount -a [-flkrn]\n", stderr);
        return 1;
    }
    int status = 0;
    std::vector<Mount> mounts = mounts_read();
    if (wishes.all)
        for (Mount &mount : mounts)
            mount.chosen = !is_of_the_kernel(mount.type);
    for (int index = optind; index < argc; index++) {
        if (Mount *top = mount_find(mounts, argv[index]); top != nullptr) {
            choose(mounts, *top, wishes);
        } else {
            fprintf(stderr, "umount: %s: not mounted\n", argv[index]);
            status = kStillMounted;
        }
    }
    for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount)
        if (mount->chosen && !unmount(*mount, wishes))
            status = kStillMounted;
    return status;
}
