// Does in a box what tests of the sandbox want to see: `probe STEP ARGUMENT STEP ARGUMENT ...`. Each step prints
// "STEP RESULT", with the name of errno on failure.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

static int kept = -1; // descriptor of the last "open"

static long host_name_set(const char *name)
{
    char now[64] = "";
    if (sethostname(name, strlen(name)) != 0 || gethostname(now, sizeof(now)) != 0)
        return -1;
    return strcmp(now, name) == 0 ? 0 : 1;
}

// "DIGIT PATH": sets the byte of shared memory that belongs to the file.
static long shared_set(const char *value_and_path)
{
    void *const shared = shmat(shmget(ftok(value_and_path + 2, 1), 1, 0600), nullptr, 0);
    if (shared == reinterpret_cast<void *>(-1))
        return -1;
    *static_cast<char *>(shared) = static_cast<char>(value_and_path[0] - '0');
    return 0;
}

static long daemon_start(const char *seconds)
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid > 0 ? 0 : -1;
    setsid();
    close(kept);
    const timespec moment = {.tv_sec = 0, .tv_nsec = 10'000'000};
    for (int i = atoi(seconds) * 100; i > 0; i--)
        syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &moment, nullptr);
    _exit(0);
}

// These become another program, in a way that no shell starts one.
static long blocked_become(const char *path)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    return execl(path, path, nullptr);
}
static long ignored_become(const char *path)
{
    for (int number = 1; number <= SIGRTMAX; number++)
        signal(number, SIG_IGN);
    return execl(path, path, nullptr);
}
static long nameless_become(const char *path)
{
    char *none[] = {nullptr};
    return execve(path, none, environ);
}

static const struct {
    const char *name;
    long (*act)(const char *argument);
} kSteps[] = {
    {"sleep", [](const char *seconds) { return static_cast<long>(sleep(static_cast<unsigned>(atoi(seconds)))); }},
    {"settimeofday",
     [](const char *seconds) {
         const timeval time = {.tv_sec = atol(seconds), .tv_usec = 0};
         return static_cast<long>(settimeofday(&time, nullptr));
     }},
    {"sethostname", host_name_set},
    {"reboot", [](const char *) { return static_cast<long>(reboot(RB_AUTOBOOT)); }},
    {"mount",
     [](const char *target) { return static_cast<long>(mount("/dev/md0", target, "ext4", MS_NOATIME, nullptr)); }},
    {"swapon", [](const char *path) { return static_cast<long>(swapon(path, 0)); }},
    {"module", [](const char *parameters) { return syscall(SYS_finit_module, kept, parameters, 0); }},
    {"open", [](const char *path) { return (kept = open(path, O_RDWR | O_CLOEXEC)) >= 0 ? 0L : -1L; }},
    {"create",
     [](const char *path) { return static_cast<long>(close(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600))); }},
    {"flock",
     [](const char *path) { return static_cast<long>(flock(open(path, O_RDWR | O_CREAT, 0600), LOCK_EX)); }}, // NOLINT
    {"semget",
     [](const char *key) {
         return semget(static_cast<key_t>(strtol(key, nullptr, 0)), 1, IPC_CREAT | 0600) >= 0 ? 0L : -1L;
     }},
    {"shared", shared_set},
    {"daemon", daemon_start},
    {"id",
     [](const char *) {
         return static_cast<long>(printf("pid %d uid %d gid %d\n", getpid(), getuid(), getgid()) < 0);
     }},
    {"blocked", blocked_become},
    {"ignored", ignored_become},
    {"nameless", nameless_become},
};

int main(int argc, char *argv[])
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("named %s\n", argv[0]);
    for (int i = 1; i + 1 < argc; i += 2)
        for (const auto &[name, act] : kSteps) {
            if (strcmp(name, argv[i]) != 0)
                continue;
            const long result = act(argv[i + 1]);
            if (result == -1)
                printf("%s %s\n", name, strerrorname_np(errno));
            else
                printf("%s %ld\n", name, result);
        }
    return 0;
}
