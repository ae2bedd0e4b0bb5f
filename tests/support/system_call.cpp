#include "tests/support/system_call.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/syscall.h>
#include <sys/uio.h>

static constexpr SystemCallRule kRules[] = {
    {SYS_read, "read", "f-n"},
    {SYS_open, "open", "poo"},
    {SYS_fstat, "fstat", "f"},
    {SYS_fsync, "fsync", "f"},
    {SYS_rmdir, "rmdir", "p"},
    {SYS_chdir, "chdir", "p"},
    {SYS_fcntl, "fcntl", "fn"},
    {SYS_ioctl, "ioctl", "fn"},
    {SYS_flock, "flock", "fn"},
    {SYS_mkdir, "mkdir", "po"},
    {SYS_chmod, "chmod", "po"},
    {SYS_write, "write", "f-n"},
    {SYS_access, "access", "p"},
    {SYS_lseek, "lseek", "fnn"},
    {SYS_unlink, "unlink", "p"},
    {SYS_chown, "chown", "pnn"},
    {SYS_execve, "execve", "p"},
    {SYS_rename, "rename", "pp"},
    {SYS_fchmod, "fchmod", "fo"},
    {SYS_openat, "openat", "doo"},
    {SYS_fchown, "fchown", "fnn"},
    {SYS_mkdirat, "mkdirat", "do"},
    {SYS_unlinkat, "unlinkat", "d"},
    {SYS_readlink, "readlink", "p"},
    {SYS_pread64, "pread64", "f-nn"},
    {SYS_renameat, "renameat", "dd"},
    {SYS_fchmodat, "fchmodat", "do"},
    {SYS_faccessat, "faccessat", "d"},
    {SYS_fdatasync, "fdatasync", "f"},
    {SYS_pwrite64, "pwrite64", "f-nn"},
    {SYS_sendfile, "sendfile", "ff-n"},
    {SYS_ftruncate, "ftruncate", "fn"},
    {SYS_newfstatat, "newfstatat", "d"},
    {SYS_readlinkat, "readlinkat", "d"},
    {SYS_getdents64, "getdents64", "f"},
    {SYS_close, "close", "f", CallFailure::kDone},
    {SYS_sync, "sync", "", CallFailure::kSleeps},
    {SYS_nanosleep, "nanosleep", "", CallFailure::kSleeps},
    {SYS_clock_nanosleep, "clock_nanosleep", "", CallFailure::kSleeps},
};
// These cannot fail in a sound program, or belong to the allocator or the C runtime.
static constexpr long kNever[] = {
    SYS_exit,     SYS_exit_group,   SYS_brk,           SYS_mmap,           SYS_munmap,          SYS_mremap,
    SYS_mprotect, SYS_madvise,      SYS_rt_sigaction,  SYS_rt_sigprocmask, SYS_rt_sigreturn,    SYS_sigaltstack,
    SYS_tgkill,   SYS_alarm,        SYS_setitimer,     SYS_getpid,         SYS_getppid,         SYS_gettid,
    SYS_getpgrp,  SYS_setsid,       SYS_getuid,        SYS_geteuid,        SYS_getgid,          SYS_getegid,
    SYS_umask,    SYS_uname,        SYS_sysinfo,       SYS_getrandom,      SYS_prlimit64,       SYS_prctl,
    SYS_time,     SYS_gettimeofday, SYS_clock_gettime, SYS_arch_prctl,     SYS_set_tid_address, SYS_set_robust_list,
    SYS_rseq,     SYS_futex,        SYS_sched_yield};

SystemCallRule system_call_rule(long number)
{
    const auto *rule = std::find_if(std::begin(kRules), std::end(kRules),
                                    [number](const SystemCallRule &known) { return known.number == number; });
    if (rule != std::end(kRules))
        return *rule;
    const bool is_safe = std::find(std::begin(kNever), std::end(kNever), number) != std::end(kNever);
    return {number, "call", "", is_safe ? CallFailure::kNever : CallFailure::kPlain};
}

std::string process_link(pid_t process, std::string_view link)
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/" + std::string(link), none).string();
}

// Reads page by page, since the text may end just before memory that is not there.
static std::string text_read(pid_t process, unsigned long long address)
{
    static constexpr size_t kPage = 4096;
    std::string text;
    char piece[kPage];
    while (address != 0 && text.size() < kPage) {
        const size_t room = kPage - static_cast<size_t>(address % kPage);
        const iovec here = {piece, room};
        const iovec there = {reinterpret_cast<void *>(address), room}; // NOLINT(performance-no-int-to-ptr)
        const ssize_t got = process_vm_readv(process, &here, 1, &there, 1, 0);
        if (got <= 0)
            break;
        const std::string_view part(piece, static_cast<size_t>(got));
        const size_t end = part.find('\0');
        text += part.substr(0, end);
        if (end != std::string_view::npos)
            break;
        address += static_cast<unsigned long long>(got);
    }
    return text;
}

static std::string path_show(std::string path, std::string_view tree)
{
    if (!path.starts_with(tree))
        return path;
    path.erase(0, tree.size());
    return path.empty() ? "/" : path;
}

static std::string path_text(pid_t process, int directory, unsigned long long address, std::string_view tree)
{
    const std::string path = text_read(process, address);
    if (path.starts_with('/'))
        return path_show(path, tree);
    const std::string base = process_link(process, directory == AT_FDCWD ? "cwd" : "fd/" + std::to_string(directory));
    return path_show(path.empty() ? base : base + "/" + path, tree);
}

std::string system_call_text(pid_t process, const SystemCallRule &rule, const unsigned long long *arguments,
                             std::string_view tree)
{
    char octal[32];
    std::string text(rule.name);
    if (text == "call")
        text += " " + std::to_string(rule.number);
    for (const char kind : rule.arguments) {
        const unsigned long long value = *arguments++;
        switch (kind) {
        case 'p':
            text += " " + path_text(process, AT_FDCWD, value, tree);
            break;
        case 'd':
            text += " " + path_text(process, static_cast<int>(value), *arguments++, tree);
            break;
        case 'f':
            text += " " + path_show(process_link(process, "fd/" + std::to_string(static_cast<int>(value))), tree);
            break;
        case 'n':
            text += " " + std::to_string(static_cast<long long>(value));
            break;
        case 'o':
            snprintf(octal, sizeof(octal), " 0%llo", value);
            text += octal;
            break;
        default:
            break;
        }
    }
    return text;
}
