// Runs commands in the guest for the host: one process for each virtio-serial port named lab.0, lab.1 ..., one command
// at a time on each.
//
// Both directions carry packets: the byte 0xa5, a type, the payload's length (2 bytes) and the session (4 bytes),
// little-endian, then the payload. A session is one command.
//   to the guest    R  start: the arguments, each ended by a NUL      I  standard input; empty: end of input
//   to the host     H  started    O E  output and error output    A  count of input bytes taken (4 bytes)
//                   X  ended: the wait status (4 bytes)
// The host keeps at most kWindowBytes of input unanswered, so that this program always reads on. A host may go away in
// the middle of a packet: the next one sends enough NULs to fill any packet before its own first, drops what comes
// before its H, and its session number ends the session before it. The news that a host has gone may come after the
// first words of the next one, so that only a silence of kGraceMs counts. A command that exits leaves what it put into
// the background alone; one whose host goes away is killed with its whole process group.
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

enum {
    kHeaderBytes = 8,
    kPayloadBytes = 32760, // with the header, what the driver takes at once
    kWindowBytes = 262144,
    kMagic = 0xa5,
    kMaxArguments = 256,
    kGraceMs = 1000,
};

static int g_port = -1;
static bool g_hung_up; // no host; a signal says that there may be one again
static uint8_t g_packets[4 * (kHeaderBytes + kPayloadBytes)];
static size_t g_packets_held;

static struct {
    uint32_t id; // 0: none
    pid_t child;
    int in, out, err; // -1: closed
    bool in_ended;
    uint8_t input[kWindowBytes];
    size_t input_held;
} g_session = {.in = -1, .out = -1, .err = -1};

static uint32_t little_endian_load(const uint8_t *bytes, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value |= (uint32_t)bytes[i] << 8 * i;
    return value;
}

static void close_end(int *descriptor)
{
    if (*descriptor >= 0)
        close(*descriptor);
    *descriptor = -1;
}

static void session_forget(void)
{
    close_end(&g_session.in);
    close_end(&g_session.out);
    close_end(&g_session.err);
    g_session.id = 0;
    g_session.child = 0;
    g_session.in_ended = false;
    g_session.input_held = 0;
}

static void session_kill(void)
{
    if (g_session.child > 0) {
        if (kill(-g_session.child, SIGKILL) != 0) // it may not lead its group yet
            kill(g_session.child, SIGKILL);
        waitpid(g_session.child, NULL, 0);
    }
    session_forget();
}

// Returns false when there has been no host for kGraceMs.
static bool send_bytes(const uint8_t *bytes, size_t count)
{
    int alone_ms = 0;
    while (count > 0 && alone_ms < kGraceMs) {
        const ssize_t done = write(g_port, bytes, count);
        if (done >= 0) {
            bytes += done;
            count -= (size_t)done;
            alone_ms = 0;
        } else if (errno == EAGAIN) {
            struct pollfd port = {.fd = g_port, .events = POLLOUT};
            if (poll(&port, 1, -1) > 0 && port.revents & POLLHUP)
                alone_ms += poll(NULL, 0, 10) + 10;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return count == 0;
}

static void send_packet(char type, const void *payload, size_t size)
{
    static uint8_t packet[kHeaderBytes + kPayloadBytes];
    const uint8_t header[4] = {kMagic, (uint8_t)type, (uint8_t)size, (uint8_t)(size >> 8)};
    memcpy(packet, header, sizeof(header));
    for (int i = 0; i < 4; i++)
        packet[4 + i] = (uint8_t)(g_session.id >> 8 * i);
    if (size > 0)
        memcpy(packet + kHeaderBytes, payload, size);
    if (g_session.id != 0 && !send_bytes(packet, kHeaderBytes + size))
        session_kill();
}

static void send_number(char type, uint32_t number)
{
    const uint8_t bytes[] = {(uint8_t)number, (uint8_t)(number >> 8), (uint8_t)(number >> 16), (uint8_t)(number >> 24)};
    send_packet(type, bytes, sizeof(bytes));
}

static _Noreturn void child_run(char *arguments[], const int in, const int out, const int err)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    signal(SIGPIPE, SIG_DFL);
    setsid();
    if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || chdir("/") != 0)
        _exit(126);
    execvp(arguments[0], arguments);
    dprintf(2, "%s: %m\n", arguments[0]);
    _exit(127);
}

static void session_start(uint32_t id, char *text, size_t size)
{
    char *arguments[kMaxArguments + 1] = {NULL};
    int count = 0;
    for (char *at = text; at < text + size && count < kMaxArguments; at += strlen(at) + 1)
        arguments[count++] = at;
    int in[2], out[2], err[2];
    if (count == 0 || pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        _exit(1); // init starts us anew
    g_session.id = id;
    g_session.child = fork();
    if (g_session.child == 0)
        child_run(arguments, in[0], out[1], err[1]);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    g_session.in = in[1];
    g_session.out = out[0];
    g_session.err = err[0];
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    fcntl(out[0], F_SETFL, O_NONBLOCK);
    fcntl(err[0], F_SETFL, O_NONBLOCK);
    send_packet('H', NULL, 0);
    if (g_session.child < 0) {
        send_number('X', 126U << 8);
        session_forget();
    }
}

// The payload has room for one byte behind it.
static void packet_handle(uint8_t type, uint32_t session, uint8_t *payload, size_t size)
{
    if (type == 'R') {
        session_kill();
        const uint8_t behind = payload[size];
        payload[size] = '\0';
        session_start(session, (char *)payload, size);
        payload[size] = behind;
    } else if (type == 'I' && session == g_session.id && session != 0) {
        if (size > sizeof(g_session.input) - g_session.input_held) {
            session_kill(); // the host broke the window
            return;
        }
        g_session.in_ended = size == 0;
        memcpy(g_session.input + g_session.input_held, payload, size);
        g_session.input_held += size;
    }
}

static void packets_receive(void)
{
    const ssize_t got = read(g_port, g_packets + g_packets_held, sizeof(g_packets) - 1 - g_packets_held);
    if (got <= 0) {
        g_hung_up = got == 0;
        return;
    }
    g_packets_held += (size_t)got;
    size_t at = 0;
    while (g_packets_held - at >= kHeaderBytes) {
        uint8_t *header = g_packets + at;
        const size_t size = little_endian_load(header + 2, 2);
        if (header[0] != kMagic || size > kPayloadBytes) {
            at++;
            continue;
        }
        if (g_packets_held - at - kHeaderBytes < size)
            break;
        packet_handle(header[1], little_endian_load(header + 4, 4), header + kHeaderBytes, size);
        at += kHeaderBytes + size;
    }
    g_packets_held -= at;
    memmove(g_packets, g_packets + at, g_packets_held);
}

static void input_pass(void)
{
    if (g_session.input_held > 0) {
        ssize_t taken = write(g_session.in, g_session.input, g_session.input_held);
        if (taken < 0 && errno == EAGAIN)
            return;
        if (taken < 0) // the command reads no more; its input goes nowhere
            taken = (ssize_t)g_session.input_held;
        g_session.input_held -= (size_t)taken;
        memmove(g_session.input, g_session.input + taken, g_session.input_held);
        send_number('A', (uint32_t)taken);
    }
    if (g_session.input_held == 0 && g_session.in_ended)
        close_end(&g_session.in);
}

// Returns true while there may be more.
static bool output_pass(char type, int *from)
{
    uint8_t bytes[kPayloadBytes];
    const ssize_t got = *from < 0 ? 0 : read(*from, bytes, sizeof(bytes));
    if (got > 0)
        send_packet(type, bytes, (size_t)got);
    else if (got == 0)
        close_end(from);
    return got > 0;
}

static void child_reap(void)
{
    int status;
    if (g_session.child <= 0 || waitpid(g_session.child, &status, WNOHANG) != g_session.child)
        return;
    g_session.child = 0;
    while (output_pass('O', &g_session.out))
        ;
    while (output_pass('E', &g_session.err))
        ;
    send_number('X', (uint32_t)status);
    session_forget();
}

static _Noreturn void serve(const char *device)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGIO);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int signal_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    g_port = open(device, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (signal_fd < 0 || g_port < 0 || fcntl(g_port, F_SETOWN, getpid()) != 0 ||
        fcntl(g_port, F_SETFL, O_NONBLOCK | O_ASYNC) != 0)
        _exit(1);
    for (;;) {
        const bool input = g_session.input_held > 0 || g_session.in_ended;
        struct pollfd at[] = {
            {.fd = signal_fd, .events = POLLIN},
            {.fd = g_hung_up ? -1 : g_port, .events = POLLIN},
            {.fd = input ? g_session.in : -1, .events = POLLOUT},
            {.fd = g_session.out, .events = POLLIN},
            {.fd = g_session.err, .events = POLLIN},
        };
        const int ready = poll(at, sizeof(at) / sizeof(at[0]), g_hung_up && g_session.id != 0 ? kGraceMs : -1);
        if (ready == 0)
            session_kill();
        if (ready <= 0)
            continue;
        if (at[3].revents != 0)
            output_pass('O', &g_session.out);
        if (at[4].revents != 0)
            output_pass('E', &g_session.err);
        if (at[2].revents != 0)
            input_pass();
        if (at[1].revents & POLLIN)
            packets_receive();
        else if (at[1].revents & POLLHUP)
            g_hung_up = true;
        if (at[0].revents != 0) {
            struct signalfd_siginfo info;
            while (read(signal_fd, &info, sizeof(info)) == sizeof(info))
                if (info.ssi_signo == SIGIO)
                    g_hung_up = false;
            child_reap();
        }
    }
}

int main(void)
{
    static const char kPorts[] = "/sys/class/virtio-ports";
    DIR *ports = opendir(kPorts);
    if (ports == NULL)
        return 1;
    for (struct dirent *port; (port = readdir(ports)) != NULL;) {
        char path[512], name[64] = "";
        snprintf(path, sizeof(path), "%s/%s/name", kPorts, port->d_name);
        FILE *file = fopen(path, "re");
        if (file == NULL)
            continue;
        const bool ours = fgets(name, sizeof(name), file) != NULL && strncmp(name, "lab.", 4) == 0 && name[4] >= '0' &&
                          name[4] <= '9';
        fclose(file);
        if (!ours)
            continue;
        snprintf(path, sizeof(path), "/dev/%s", port->d_name);
        if (fork() == 0)
            serve(path);
    }
    closedir(ports);
    wait(NULL); // one that ends takes the others along, and init starts all anew
    return 1;
}
