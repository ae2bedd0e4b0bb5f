/*
 * Does in a box what the sandbox's own tests want to see: `probe STEP ARGUMENT STEP ARGUMENT ...`. Each step prints
 * "STEP RESULT" with the name of errno on failure.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

static int kept = -1; /* descriptor of the last "open" */

static long do_log(const char *text)
{
    syslog(LOG_WARNING, "%s", text);
    return 0;
}

static long do_system(const char *line)
{
    return system(line);
}

static long do_sleep(const char *seconds)
{
    return (long)sleep((unsigned)atoi(seconds));
}

static long do_usleep(const char *microseconds)
{
    return usleep((useconds_t)atoi(microseconds));
}

static long do_nanosleep(const char *seconds)
{
    return nanosleep(&(struct timespec){.tv_sec = atoi(seconds), .tv_nsec = 5}, NULL);
}

static long do_select(const char *seconds)
{
    struct timeval limit = {.tv_sec = atoi(seconds)};
    return select(0, NULL, NULL, NULL, &limit);
}

static long do_poll(const char *milliseconds)
{
    struct pollfd source = {.fd = kept, .events = POLLIN};
    return poll(&source, 1, atoi(milliseconds));
}

/* Tens of seconds that the clock shows a sleep to have taken. */
static long do_clock(const char *seconds)
{
    const time_t before = time(NULL);
    sleep((unsigned)atoi(seconds));
    return (time(NULL) - before) / 10;
}

static long do_alarm(const char *seconds)
{
    sigset_t wanted;
    int number;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGALRM);
    sigprocmask(SIG_BLOCK, &wanted, NULL);
    alarm((unsigned)atoi(seconds));
    return sigwait(&wanted, &number) == 0 ? number : -1;
}

static long do_settimeofday(const char *seconds)
{
    return settimeofday(&(struct timeval){.tv_sec = atol(seconds)}, NULL);
}

static long do_sethostname(const char *name)
{
    char now[64] = "";
    if (sethostname(name, strlen(name)) != 0 || gethostname(now, sizeof(now)) != 0)
        return -1;
    return strcmp(now, name) == 0 ? 0 : 1;
}

static long do_reboot(const char *unused)
{
    (void)unused;
    return reboot(RB_AUTOBOOT);
}

static long do_mount(const char *target)
{
    return mount("/dev/md0", target, "ext4", MS_NOATIME, NULL);
}

static long do_umount(const char *target)
{
    return umount(target);
}

static long do_swapon(const char *path)
{
    return swapon(path, 0);
}

static long do_module(const char *parameters)
{
    return syscall(SYS_finit_module, kept, parameters, 0);
}

static long do_open(const char *path)
{
    return (kept = open(path, O_RDWR | O_CLOEXEC)) >= 0 ? 0 : -1;
}

static long do_create(const char *path)
{
    return close(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
}

static long do_fsync(const char *unused)
{
    (void)unused;
    return fsync(kept);
}

static long do_ioctl(const char *number)
{
    uint64_t value = 0;
    const int result = ioctl(kept, strtoul(number, NULL, 0), &value);
    return result < 0 ? result : (long)value;
}

static long do_bad_ioctl(const char *number)
{
    return ioctl(kept, strtoul(number, NULL, 0), (void *)8);
}

static long do_flock(const char *path)
{
    return flock(open(path, O_RDWR | O_CREAT, 0600), LOCK_EX);
}

static long do_semget(const char *key)
{
    return semget((key_t)strtol(key, NULL, 0), 1, IPC_CREAT | 0600) >= 0 ? 0 : -1;
}

/* "DIGIT PATH": sets the byte of shared memory that belongs to the file. */
static long do_shared(const char *value_and_path)
{
    char *shared = shmat(shmget(ftok(value_and_path + 2, 1), 1, 0600), NULL, 0);
    if (shared == (char *)-1)
        return -1;
    *shared = (char)(value_and_path[0] - '0');
    return 0;
}

static long do_daemon(const char *seconds)
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid > 0 ? 0 : -1;
    setsid();
    close(kept);
    for (int i = atoi(seconds) * 100; i > 0; i--)
        syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &(struct timespec){.tv_nsec = 10000000}, NULL);
    _exit(0);
}

static int spawned(void *path)
{
    char *const argv[] = {path, "sleep", "0", NULL};
    char *const environment[] = {NULL};
    for (int fd = 3; fd < 16; fd++)
        close(fd);
    execve(path, argv, environment);
    _exit(errno);
}

/* A child in our own memory, on a stack of its own. */
static long do_clone(const char *path)
{
    static char stack[16384];
    int status;
    const pid_t pid = clone(spawned, stack + sizeof(stack), CLONE_VM | CLONE_VFORK | SIGCHLD, (void *)path);
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static long do_id(const char *unused)
{
    (void)unused;
    printf("pid %d uid %d gid %d\n", getpid(), getuid(), getgid());
    return 0;
}

static long do_env(const char *name)
{
    const char *value = getenv(name);
    printf("%s\n", value != NULL ? value : "(none)");
    return 0;
}

static long do_read(const char *count)
{
    char text[256];
    const ssize_t got = read(0, text, (size_t)atoi(count));
    if (got > 0)
        printf("%.*s\n", (int)got, text);
    return got;
}

static long do_exit(const char *status)
{
    exit(atoi(status));
}

static long do_kill(const char *number)
{
    return raise(atoi(number));
}

/* Become another program, in a way that no shell starts one. */
static long do_blocked(const char *path)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, NULL);
    return execl(path, path, NULL);
}

static long do_ignored(const char *path)
{
    for (int number = 1; number <= SIGRTMAX; number++)
        signal(number, SIG_IGN);
    return execl(path, path, NULL);
}

static long do_nameless(const char *path)
{
    char *none[] = {NULL};
    return execve(path, none, environ);
}

static const struct {
    const char *name;
    long (*act)(const char *);
} steps[] = {
    {"log", do_log},
    {"system", do_system},
    {"sleep", do_sleep},
    {"usleep", do_usleep},
    {"nanosleep", do_nanosleep},
    {"select", do_select},
    {"poll", do_poll},
    {"clock", do_clock},
    {"alarm", do_alarm},
    {"settimeofday", do_settimeofday},
    {"sethostname", do_sethostname},
    {"reboot", do_reboot},
    {"mount", do_mount},
    {"umount", do_umount},
    {"swapon", do_swapon},
    {"module", do_module},
    {"open", do_open},
    {"create", do_create},
    {"fsync", do_fsync},
    {"ioctl", do_ioctl},
    {"bad-ioctl", do_bad_ioctl},
    {"flock", do_flock},
    {"semget", do_semget},
    {"shared", do_shared},
    {"daemon", do_daemon},
    {"clone", do_clone},
    {"id", do_id},
    {"env", do_env},
    {"read", do_read},
    {"exit", do_exit},
    {"kill", do_kill},
    {"blocked", do_blocked},
    {"ignored", do_ignored},
    {"nameless", do_nameless},
};

int main(int argc, char *argv[])
{
    setvbuf(stdout, NULL, _IOLBF, 0);
    printf("named %s\n", argv[0]);
    for (int i = 1; i + 1 < argc; i += 2)
        for (size_t step = 0; step < sizeof(steps) / sizeof(*steps); step++) {
            if (strcmp(steps[step].name, argv[i]) != 0)
                continue;
            const long result = steps[step].act(argv[i + 1]);
            if (result == -1)
                printf("%s %s\n", argv[i], strerrorname_np(errno));
            else
                printf("%s %ld\n", argv[i], result);
        }
    return 0;
}
