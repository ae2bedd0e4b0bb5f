#include "tests/support/box.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "tests/support/box_text.h"
#include "tests/support/wire.h"

namespace
{

constexpr const char *kNorvPath = "/usr/libexec/norv/norv";
constexpr const char *kProgramFolder = "/usr/sbin/";
constexpr const char *kCgiFolder = "/usr/lib/norv/cgi-bin/";

constexpr std::pair<const char *, mode_t> kFolders[] = {
    {"/bin", 0755},
    {"/sbin", 0755},
    {"/usr/bin", 0755},
    {"/usr/sbin", 0755},
    {"/usr/lib/norv/cgi-bin", 0755},
    {"/etc", 0755},
    {"/etc.defaults", 0755},
    {"/dev", 0755},
    {"/sys", 0755},
    {"/proc/sys/kernel", 0755},
    {"/proc/net", 0755},
    {"/tmp", 01777},
    {"/var/run", 0755},
    {"/var/lock", 0755},
    {"/var/log", 0755},
    {"/run", 0755},
    {"/root", 0700},
    {BOX_PROC, 0555},
    {BOX_VOLUMES, 0755},
};

constexpr const char *kLinks[][2] = {
    {"/dev/log", BOX_LOG},
    {"/dev/fd", "/proc/self/fd"},
    {"/dev/stdin", "/proc/self/fd/0"},
    {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"},
    {"/proc/self", BOX_PROC "/self"},
    {"/proc/thread-self", BOX_PROC "/thread-self"},
    {"/proc/cpuinfo", BOX_PROC "/cpuinfo"},
    {"/proc/meminfo", BOX_PROC "/meminfo"},
    {"/proc/stat", BOX_PROC "/stat"},
    {"/proc/uptime", BOX_PROC "/uptime"},
    {"/proc/version", BOX_PROC "/version"},
    {"/proc/filesystems", BOX_PROC "/filesystems"},
    {"/proc/net/dev", BOX_PROC "/self/net/dev"},
    {"/proc/net/route", BOX_PROC "/self/net/route"},
    {"/proc/net/arp", BOX_PROC "/self/net/arp"},
    {"/proc/net/if_inet6", BOX_PROC "/self/net/if_inet6"},
};

// All of the host that a program can reach.
constexpr const char *kDevices[] = {"/dev/null", "/dev/zero", "/dev/random", "/dev/urandom", "/dev/tty"};
constexpr const char *kLibraries[] = {"/lib64", "/lib/x86_64-linux-gnu", "/usr/lib64", "/usr/lib/x86_64-linux-gnu"};

constexpr const char *kSmallFiles[][2] = {
    {"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"},
    {"/etc/group", "root:x:0:\n"},
    {"/etc/ld.so.preload", BOX_PRELOAD "\n"},
    {"/proc/cmdline", "root=/dev/ram0\n"},
    {"/proc/swaps", "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"},
    {"/proc/partitions", "major minor  #blocks  name\n\n"},
    {"/proc/devices", "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n  9 md\n"},
};

std::vector<std::string> role_names()
{
    return words_split(std::string_view(SANDBOX_ROLES, sizeof(SANDBOX_ROLES) - 1));
}

} // namespace

std::string role_path(const std::string &name)
{
    const std::vector<std::string> names = role_names();
    if (std::find(names.begin(), names.end(), name) == names.end())
        return "";
    return (name.ends_with(".cgi") ? kCgiFolder : kProgramFolder) + name;
}

bool Box::begin(std::string *refusal)
{
    if (!init.begin(refusal))
        return false;
    files = std::make_unique<BoxFiles>(init.take_root());
    for (const auto &[path, mode] : kFolders)
        files->directory(path, mode);
    for (const auto &[path, content] : kSmallFiles)
        files->write(path, content, 0644);
    for (const auto &[path, target] : kLinks)
        files->symlink(path, target);
    for (const std::string &role : role_names())
        files->symlink(role_path(role), kNorvPath);
    files->copy(SANDBOX_PRELOAD, BOX_PRELOAD, 0755);
    files->copy(SANDBOX_STANDIN, BOX_STANDIN, 0755);
    if (!init.enter(host_binds()))
        return BoxInit::refused("mounts", refusal);
    server = std::make_unique<BoxServer>(*files, init.reports());
    server->host_program("/bin/sh");
    return true;
}

std::vector<std::string> Box::host_binds() const
{
    std::vector<std::string> binds;
    const auto bind = [&](const std::string &host_path, const std::string &path, const char *access) {
        binds.insert(binds.end(), {host_path, "." + path, access});
    };
    for (const char *device : kDevices) {
        if (access(device, F_OK) != 0)
            continue; // a container may have no terminal
        files->write(device, "", 0666);
        bind(device, device, "rw");
    }
    for (const char *library : kLibraries) {
        if (access(library, F_OK) != 0)
            continue;
        files->directory(library, 0755);
        bind(library, library, "ro");
    }
    files->write(kNorvPath, "", 0755);
    bind(SANDBOX_NORV, kNorvPath, "ro");
    return binds;
}
