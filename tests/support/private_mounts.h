// A mount namespace of one's own, for benchmarks and fuzz targets that need files at fixed paths.
#pragma once

#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

// Leaves the machine's mounts behind: whatever is mounted from now on, only this process and its children see. They
// are root in it. `more` names namespaces beside, CLONE_NEWNET and so on. Needs no root; false when the kernel gives
// none.
inline bool private_mounts_enter(int more = 0)
{
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | more) != 0)
        return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}
