#include "tests/fuzz/file_root.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "tests/support/private_mounts.h"

static constexpr char kRoot[] = "/mnt";

// Shows a folder of the machine at its own path below the root, for reading.
static bool show(const std::string &path)
{
    const std::string inside = kRoot + path;
    std::filesystem::create_directories(inside);
    return mount(path.c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
           mount(nullptr, inside.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

// What a sanitizer reads of its process, and what it needs to name the place of a finding.
static bool sanitizer_needs_show()
{
    const std::string self = "/proc/" + std::to_string(getpid());
    char program[PATH_MAX] = "";
    if (readlink("/proc/self/exe", program, sizeof(program) - 1) < 0)
        return false;
    std::filesystem::create_directories(std::string(kRoot) + "/usr/bin");
    std::filesystem::create_symlink("usr/lib", std::string(kRoot) + "/lib");
    std::filesystem::create_symlink("usr/lib64", std::string(kRoot) + "/lib64");
    std::filesystem::create_symlink("../lib/llvm-14/bin/llvm-symbolizer",
                                    std::string(kRoot) + "/usr/bin/llvm-symbolizer-14");
    std::filesystem::create_directory(std::string(kRoot) + "/proc");
    std::filesystem::create_directory(kRoot + self);
    std::filesystem::create_symlink(self, std::string(kRoot) + "/proc/self");
    return mount(self.c_str(), (kRoot + self).c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 && show("/usr/lib") &&
           show("/usr/lib64") && show(std::filesystem::path(program).parent_path());
}

static bool root_make()
{
    if (!private_mounts_enter(CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS) ||
        mount("root", kRoot, "tmpfs", 0, nullptr) != 0 || !sanitizer_needs_show())
        return false;
    for (const char *folder : {"/dev", "/etc", "/sys", "/tmp"})
        std::filesystem::create_directory(std::string(kRoot) + folder);
    return chroot(kRoot) == 0;
}

void file_root_enter()
{
    setlogmask(LOG_MASK(LOG_EMERG));
    if (root_make())
        return;
    perror("no root of its own");
    _exit(kFileRootNone);
}

void file_root_put(const char *path, std::string_view text)
{
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    }
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        perror(path);
        abort();
    }
    close(fd);
}

static void file_remove(const char *path)
{
    path[0] == '/' ? unlink(path) : unsetenv(path);
}

void file_root_run(std::span<const FuzzFile> files, std::string_view input, bool stays)
{
    if (input.empty())
        return;
    const std::string text(input.substr(1));
    for (const FuzzFile &file : files) {
        if (file.letter != tolower(static_cast<unsigned char>(input[0])))
            continue;
        if (file.letter != input[0])
            file_remove(file.path);
        else if (file.path[0] == '/')
            file_root_put(file.path, text);
        else
            setenv(file.path, text.c_str(), 1);
        file.read();
        if (!stays)
            file_remove(file.path);
    }
}
