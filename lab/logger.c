// The guest's system log: takes messages on /dev/log and writes each as one line, priority by name, to the
// virtio-serial port lab.log, where the host keeps it in a file that outlives the guest, and to /var/log/messages.
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#define SYSLOG_NAMES
#include <syslog.h>

static const char kMessages[] = "/var/log/messages";
static const off_t kMessagesMaxBytes = 4 << 20; // then it begins anew, the part before stays as messages.0

static const char *code_name(const CODE *names, int value)
{
    for (; names->c_name != NULL; names++)
        if (names->c_val == value)
            return names->c_name;
    return "unknown";
}

static int port_open(void)
{
    static const char kPorts[] = "/sys/class/virtio-ports";
    DIR *ports = opendir(kPorts);
    int found = -1;
    for (struct dirent *port; ports != NULL && found < 0 && (port = readdir(ports)) != NULL;) {
        char path[512], name[64] = "";
        snprintf(path, sizeof(path), "%s/%s/name", kPorts, port->d_name);
        FILE *file = fopen(path, "re");
        if (file == NULL)
            continue;
        if (fgets(name, sizeof(name), file) != NULL && strcmp(name, "lab.log\n") == 0) {
            snprintf(path, sizeof(path), "/dev/%s", port->d_name);
            found = open(path, O_WRONLY | O_CLOEXEC);
        }
        fclose(file);
    }
    if (ports != NULL)
        closedir(ports);
    return found;
}

// A message that cannot be written is lost: there is no place to tell of it.
static void line_write(int to, const char *line, size_t size)
{
    if (to >= 0 && write(to, line, size) < 0)
        return;
}

static int messages_open(void)
{
    return open(kMessages, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

int main(void)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    unlink(address.sun_path);
    if (log < 0 || bind(log, (struct sockaddr *)&address, sizeof(address)) != 0 || chmod(address.sun_path, 0666) != 0)
        return 1;
    if (daemon(0, 0) != 0) // whoever started us may log from here on
        return 1;
    const int port = port_open();
    int messages = messages_open();
    for (;;) {
        char text[8192], line[sizeof(text) + 64];
        const ssize_t got = recv(log, text, sizeof(text) - 1, 0);
        if (got <= 0)
            continue;
        text[got] = '\0';
        char *body = text;
        long priority = LOG_USER | LOG_NOTICE;
        if (text[0] == '<') {
            priority = strtol(text + 1, &body, 10);
            body += *body == '>';
        }
        for (char *at = body; *at != '\0'; at++)
            if (*at == '\n')
                *at = at[1] == '\0' ? '\0' : ' ';
        const int size =
            snprintf(line, sizeof(line), "%s.%s %s\n", code_name(facilitynames, (int)priority & LOG_FACMASK),
                     code_name(prioritynames, (int)priority & LOG_PRIMASK), body);
        line_write(port, line, (size_t)size);
        line_write(messages, line, (size_t)size);
        struct stat status;
        if (fstat(messages, &status) == 0 && status.st_size > kMessagesMaxBytes) {
            rename(kMessages, "/var/log/messages.0");
            close(messages);
            messages = messages_open();
        }
    }
}
