#include "tests/support/system_call.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/syscall.h>
#include <sys/uio.h>

#define CALL(name, arguments)                                                                                          \
    {                                                                                                                  \
        SYS_##name, #name, arguments, CallFailure::kPlain                                                              \
    }
#define CALL_THAT(name, arguments, failure)                                                                            \
    {                                                                                                                  \
        SYS_##name, #name, arguments, CallFailure::failure                                                             \
    }

static constexpr SystemCallRule kRules[] = {
    CALL(read, "f-n"),
    CALL(write, "f-n"),
    CALL(pread64, "f-nn"),
    CALL(pwrite64, "f-nn"),
    CALL(readv, "f-n"),
    CALL(writev, "f-n"),
    CALL(sendfile, "ff-n"),
    CALL(copy_file_range, "f-f-n"),
    CALL(open, "poo"),
    CALL(openat, "doo"),
    CALL(creat, "po"),
    CALL_THAT(close, "f", kDone),
    CALL(stat, "p"),
    CALL(lstat, "p"),
    CALL(fstat, "f"),
    CALL(newfstatat, "d"),
    CALL(statx, "d"),
    CALL(access, "p"),
    CALL(faccessat, "d"),
    CALL(faccessat2, "d"),
    CALL(statfs, "p"),
    CALL(fstatfs, "f"),
    CALL(lseek, "fnn"),
    CALL(dup, "f"),
    CALL(dup2, "fn"),
    CALL(dup3, "fn"),
    CALL(fcntl, "fn"),
    CALL(ioctl, "fn"),
    CALL(flock, "fn"),
    CALL(fsync, "f"),
    CALL(fdatasync, "f"),
    CALL(syncfs, "f"),
    CALL_THAT(sync, "", kSleeps),
    CALL(truncate, "pn"),
    CALL(ftruncate, "fn"),
    CALL(fallocate, "f"),
    CALL(rename, "pp"),
    CALL(renameat, "dd"),
    CALL(renameat2, "dd"),
    CALL(link, "pp"),
    CALL(linkat, "dd"),
    CALL(symlink, "tp"),
    CALL(symlinkat, "td"),
    CALL(unlink, "p"),
    CALL(unlinkat, "d"),
    CALL(mkdir, "po"),
    CALL(mkdirat, "do"),
    CALL(rmdir, "p"),
    CALL(mknod, "po"),
    CALL(mknodat, "do"),
    CALL(chmod, "po"),
    CALL(fchmod, "fo"),
    CALL(fchmodat, "do"),
    CALL(chown, "pnn"),
    CALL(lchown, "pnn"),
    CALL(fchown, "fnn"),
    CALL(fchownat, "dnn"),
    CALL(utimensat, "d"),
    CALL(readlink, "p"),
    CALL(readlinkat, "d"),
    CALL(getdents64, "f"),
    CALL(getcwd, ""),
    CALL(chdir, "p"),
    CALL(fchdir, "f"),
    CALL(chroot, "p"),
    CALL(mount, "tp"),
    CALL(umount2, "p"),
    CALL(swapon, "p"),
    CALL(swapoff, "p"),
    CALL(pipe, ""),
    CALL(pipe2, ""),
    CALL(socket, "nnn"),
    CALL(socketpair, "nnn"),
    CALL(connect, "f"),
    CALL(bind, "f"),
    CALL(listen, "f"),
    CALL(accept, "f"),
    CALL(accept4, "f"),
    CALL(sendto, "f-n"),
    CALL(sendmsg, "f"),
    CALL(recvfrom, "f-n"),
    CALL(recvmsg, "f"),
    CALL(setsockopt, "fnn"),
    CALL(getsockopt, "fnn"),
    CALL(poll, "-n"),
    CALL(ppoll, "-n"),
    CALL(select, "n"),
    CALL(pselect6, "n"),
    CALL(fork, ""),
    CALL(vfork, ""),
    CALL(clone, ""),
    CALL(clone3, ""),
    CALL(execve, "p"),
    CALL(execveat, "d"),
    CALL(wait4, ""),
    CALL(waitid, "n"),
    CALL(kill, "-n"),
    CALL(close_range, "nn"),
    CALL(semget, "nno"),
    CALL(semop, "n"),
    CALL(semctl, "nnn"),
    CALL(semtimedop, "n"),
    CALL(shmget, "nno"),
    CALL(shmat, "n"),
    CALL(shmctl, "nn"),
    CALL(shmdt, ""),
    CALL(memfd_create, "t"),
    CALL(sethostname, "t"),
    CALL(settimeofday, ""),
    CALL(clock_settime, "n"),
    CALL_THAT(nanosleep, "", kSleeps),
    CALL_THAT(clock_nanosleep, "", kSleeps),
    CALL_THAT(exit, "n", kNever),
    CALL_THAT(exit_group, "n", kNever),
    CALL_THAT(brk, "", kNever),
    CALL_THAT(mmap, "", kNever),
    CALL_THAT(munmap, "", kNever),
    CALL_THAT(mremap, "", kNever),
    CALL_THAT(mprotect, "", kNever),
    CALL_THAT(madvise, "", kNever),
    CALL_THAT(rt_sigaction, "n", kNever),
    CALL_THAT(rt_sigprocmask, "n", kNever),
    CALL_THAT(rt_sigreturn, "", kNever),
    CALL_THAT(sigaltstack, "", kNever),
    CALL_THAT(tgkill, "", kNever),
    CALL_THAT(alarm, "n", kNever),
    CALL_THAT(setitimer, "n", kNever),
    CALL_THAT(getpid, "", kNever),
    CALL_THAT(getppid, "", kNever),
    CALL_THAT(gettid, "", kNever),
    CALL_THAT(getpgrp, "", kNever),
    CALL_THAT(setsid, "", kNever),
    CALL_THAT(getuid, "", kNever),
    CALL_THAT(geteuid, "", kNever),
    CALL_THAT(getgid, "", kNever),
    CALL_THAT(getegid, "", kNever),
    CALL_THAT(umask, "o", kNever),
    CALL_THAT(uname, "", kNever),
    CALL_THAT(sysinfo, "", kNever),
    CALL_THAT(getrandom, "", kNever),
    CALL_THAT(prlimit64, "", kNever),
    CALL_THAT(prctl, "n", kNever),
    CALL_THAT(time, "", kNever),
    CALL_THAT(gettimeofday, "", kNever),
    CALL_THAT(clock_gettime, "n", kNever),
    CALL_THAT(arch_prctl, "n", kNever),
    CALL_THAT(set_tid_address, "", kNever),
    CALL_THAT(set_robust_list, "", kNever),
    CALL_THAT(rseq, "", kNever),
    CALL_THAT(futex, "", kNever),
    CALL_THAT(sched_yield, "", kNever),
};

const SystemCallRule &system_call_rule(long number)
{
    static constexpr SystemCallRule kUnknown = {-1, "call", "", CallFailure::kPlain};
    const auto *rule = std::find_if(std::begin(kRules), std::end(kRules),
                                    [number](const SystemCallRule &known) { return known.number == number; });
    return rule == std::end(kRules) ? kUnknown : *rule;
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

static std::string octal_text(unsigned long long value)
{
    char text[32];
    snprintf(text, sizeof text, "0%llo", value);
    return text;
}

std::string system_call_text(pid_t process, const SystemCallRule &rule, const unsigned long long *arguments,
                             std::string_view tree)
{
    std::string text(rule.name);
    for (const char kind : rule.arguments) {
        const unsigned long long value = *arguments++;
        switch (kind) {
        case 'p':
            text += " " + path_text(process, AT_FDCWD, value, tree);
            break;
        case 'd':
            text += " " + path_text(process, static_cast<int>(value), *arguments++, tree);
            break;
        case 't':
            text += " " + text_read(process, value);
            break;
        case 'f':
            text += " " + path_show(process_link(process, "fd/" + std::to_string(static_cast<int>(value))), tree);
            break;
        case 'n':
            text += " " + std::to_string(static_cast<long long>(value));
            break;
        case 'o':
            text += " " + octal_text(value);
            break;
        default:
            break;
        }
    }
    return text;
}
