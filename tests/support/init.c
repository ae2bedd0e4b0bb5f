/*
 * The first process of a box. It makes the namespaces, then does what the test tells it: a command is one packet of
 * NUL-terminated words, answered by one packet: "ok", a number and maybe a descriptor, or "error", errno and the step.
 * What ends is told on a second socket. When the test goes, so does this process, and with it all of the box.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "wire.h"

enum { kCommands = 3, kReports = 4, kWordsMax = 4096, kPacketMax = 192 * 1024, kStreams = 3 };

struct command {
    char text[kPacketMax];
    char *words[kWordsMax];
    int count;
    int next; /* word that is taken next */
    int streams[kStreams];
};

static void packet_send(int socket, const char *text, int descriptor)
{
    char control[CMSG_SPACE(sizeof(int))] = {0};
    struct iovec part = {(void *)text, strlen(text) + 1};
    struct msghdr message = {.msg_iov = &part, .msg_iovlen = 1};
    if (descriptor >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        struct cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(header), &descriptor, sizeof(int));
    }
    sendmsg(socket, &message, MSG_NOSIGNAL);
}

/* Answers the command: `result` below 0 is a failure of `step` with errno. Returns the result. */
static long answer(const char *step, long result, int descriptor)
{
    char text[256];
    if (result < 0)
        snprintf(text, sizeof(text), "error %d %s", errno, step);
    else
        snprintf(text, sizeof(text), "ok %ld", result);
    packet_send(kCommands, text, descriptor);
    return result;
}

static const char *word(struct command *command)
{
    return command->next < command->count ? command->words[command->next++] : "";
}

static long number(struct command *command)
{
    return strtol(word(command), NULL, 10);
}

/* A counted list of words, ended by NULL in place of the word behind it, which is "". */
static char **list(struct command *command)
{
    const long count = number(command);
    char **first = command->words + command->next;
    if (count < 0 || count >= command->count - command->next)
        return NULL;
    first[count] = NULL;
    command->next += (int)count + 1;
    return first;
}

/* Returns 0 at the end of the test. */
static int command_receive(struct command *command)
{
    char control[CMSG_SPACE(kStreams * sizeof(int))];
    struct iovec part = {command->text, sizeof(command->text)};
    struct msghdr message = {
        .msg_iov = &part, .msg_iovlen = 1, .msg_control = control, .msg_controllen = sizeof(control)};
    const ssize_t bytes = recvmsg(kCommands, &message, MSG_CMSG_CLOEXEC);
    if (bytes <= 0 || command->text[bytes - 1] != '\0')
        return 0;
    memset(command->streams, -1, sizeof(command->streams));
    const struct cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (header != NULL && header->cmsg_type == SCM_RIGHTS)
        memcpy(command->streams, CMSG_DATA(header), header->cmsg_len - CMSG_LEN(0));
    command->count = 0;
    command->next = 0;
    for (char *at = command->text; at < command->text + bytes && command->count < kWordsMax; at += strlen(at) + 1)
        command->words[command->count++] = at;
    return 1;
}

/* A place of the host inside: its path, where, "ro" or "rw". */
static long host_bind(struct command *command)
{
    const char *source = word(command);
    const char *target = word(command);
    if (mount(source, target, NULL, MS_BIND, NULL) != 0)
        return -1;
    struct mount_attr attributes = {.attr_set = MOUNT_ATTR_RDONLY | MOUNT_ATTR_NOSUID};
    return strcmp(word(command), "rw") == 0 ? 0 : mount_setattr(AT_FDCWD, target, 0, &attributes, sizeof(attributes));
}

/* "enter" and three words for each host_bind: the folder we stand in becomes the root, and the host's root is gone. */
static long root_enter(struct command *command)
{
    const unsigned long flags = MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC;
    if (mount("proc", "." BOX_PROC, "proc", flags, NULL) != 0)
        return -1;
    while (command->next < command->count)
        if (host_bind(command) != 0)
            return -1;
    if (syscall(SYS_pivot_root, ".", ".") != 0 || umount2(".", MNT_DETACH) != 0)
        return -1;
    return chdir("/");
}

/* The program's own side of "start". Returns only on failure, with errno. */
static void program_become(struct command *command)
{
    const char *path = word(command);
    const char *folder = word(command);
    char **closed = list(command);
    char **limits = list(command);
    char **arguments = list(command);
    char **environment = list(command);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    setsid();
    if (closed == NULL || limits == NULL || arguments == NULL || environment == NULL)
        return;
    for (int i = 0; i < kStreams; i++)
        if (dup2(command->streams[i], i) < 0)
            return;
    for (; *closed != NULL; closed++)
        close(atoi(*closed));
    if (chdir(folder) != 0)
        return;
    for (; limits[0] != NULL && limits[1] != NULL; limits += 2) {
        const rlim_t value = strtoul(limits[1], NULL, 10);
        if (setrlimit((__rlimit_resource_t)atoi(limits[0]), &(struct rlimit){value, value}) != 0)
            return;
    }
    execve(path, arguments, environment);
}

/* "start" path folder, closed descriptors, limits, arguments, environment, with the three streams. */
static long program_start(struct command *command)
{
    int failure[2], error = 0;
    if (pipe2(failure, O_CLOEXEC) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        program_become(command);
        (void)!write(failure[1], &errno, sizeof(errno));
        _exit(127);
    }
    close(failure[1]);
    const ssize_t failed = pid < 0 ? 0 : read(failure[0], &error, sizeof(error));
    close(failure[0]);
    for (int i = 0; i < kStreams; i++)
        close(command->streams[i]);
    if (failed > 0) {
        errno = error;
        return -1;
    }
    return pid;
}

static void command_do(struct command *command)
{
    const char *name = word(command);
    long result = -1;
    int descriptor = -1;
    errno = EINVAL;
    if (strcmp(name, "enter") == 0) {
        result = root_enter(command);
    } else if (strcmp(name, "start") == 0) {
        result = program_start(command);
    } else if (strcmp(name, "signal") == 0) {
        const pid_t pid = (pid_t)number(command);
        result = kill(pid, (int)number(command));
    } else if (strcmp(name, "open") == 0) {
        result = descriptor = open(word(command), O_RDONLY | O_CLOEXEC);
    } else if (strcmp(name, "socket") == 0) {
        const int domain = (int)number(command), type = (int)number(command), protocol = (int)number(command);
        result = descriptor = socket(domain, type | SOCK_CLOEXEC, protocol);
    }
    answer(name, result, descriptor);
    close(descriptor);
}

static void ended_report(void)
{
    char text[64];
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        snprintf(text, sizeof(text), "ended %d %d", pid, status);
        packet_send(kReports, text, -1);
    }
}

static int box_serve(void)
{
    static struct command command;
    sigset_t ended;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, NULL);
    const int signals = signalfd(-1, &ended, SFD_CLOEXEC | SFD_NONBLOCK);
    for (;;) {
        struct pollfd sources[] = {{.fd = kCommands, .events = POLLIN}, {.fd = signals, .events = POLLIN}};
        if (poll(sources, 2, -1) < 0 && errno != EINTR)
            return 1;
        struct signalfd_siginfo signal;
        while (read(signals, &signal, sizeof(signal)) > 0)
            continue;
        ended_report();
        if (sources[0].revents == 0)
            continue;
        if (!command_receive(&command))
            return 0;
        command_do(&command);
    }
}

/* The root: a memory file system, made where the host keeps temporary files, as everyone may. */
static int root_make(void)
{
    if (mount("none", "/", NULL, MS_REC | MS_PRIVATE, NULL) != 0 ||
        mount("box", "/tmp", "tmpfs", MS_NOSUID, "mode=755") != 0 || chdir("/tmp") != 0)
        return -1;
    return open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int main(void)
{
    static struct command command;
    const int spaces = CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWIPC;
    fcntl(kCommands, F_SETFD, FD_CLOEXEC);
    fcntl(kReports, F_SETFD, FD_CLOEXEC);
    for (int number = 1; number < NSIG; number++)
        signal(number, SIG_DFL); /* a shell has background programs ignore SIGINT, nohup SIGHUP: they would pass on */
    umask(0);
    if (answer("namespaces", unshare(spaces), -1) != 0)
        return 1;
    if (!command_receive(&command)) /* "mapped": the test has written the user map */
        return 1;
    setgroups(0, NULL); /* refused to an ordinary user, who keeps them unmapped */
    const pid_t first = fork();
    if (first < 0)
        return answer("fork", -1, -1) != 0;
    if (first > 0) {
        close(kCommands);
        close(kReports);
        int status;
        return waitpid(first, &status, 0) == first ? 0 : 1;
    }
    const int root = root_make();
    if (answer("root", root, root) < 0)
        return 1;
    close(root);
    umask(022);
    sethostname("box", 3);
    return box_serve();
}
