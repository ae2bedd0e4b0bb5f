// Listens for the services of a table and starts a program for each connection, which is its three standard streams.
//   usage: inetd [CONFIGURATION]     /etc/inetd.conf without one
// A line of the table: SERVICE stream tcp nowait USER PROGRAM NAME [ARGUMENT ...]; SERVICE is a name of /etc/services
// or a port. Exit status 0 once all ports are open and a daemon serves them, whose pid stands in /var/run/inetd.pid;
// 1 when a line is wrong or a port is taken, and nothing listens then.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <string>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "autocleanup/unique.h"
#include "lib/text.h"

namespace
{

constexpr char kPidPath[] = "/var/run/inetd.pid";
constexpr size_t kFixedWords = 6; // in front of the program's own arguments
constexpr int kBacklog = 16;

struct Service {
    UniqueFd socket;
    std::vector<std::string> words;
};

bool complain(const char *what, const char *why)
{
    fprintf(stderr, "inetd: %s: %s\n", what, why);
    return false;
}

std::vector<std::string> words_of(char *line)
{
    std::vector<std::string> words;
    char *rest = line;
    line[strcspn(line, "#")] = '\0';
    for (const char *word; (word = strtok_r(rest, " \t\r\n", &rest)) != nullptr;)
        words.emplace_back(word);
    return words;
}

// 0: there is no such service.
uint16_t port_of(const std::string &service)
{
    uint16_t port = 0;
    if (text_number(service, &port))
        return port;
    const servent *entry = getservbyname(service.c_str(), "tcp");
    return entry != nullptr ? ntohs(static_cast<uint16_t>(entry->s_port)) : uint16_t{0};
}

bool service_open(Service *service)
{
    const std::vector<std::string> &words = service->words;
    if (words.size() <= kFixedWords || words[1] != "stream" || words[2] != "tcp" || words[3] != "nowait")
        return complain(words[0].c_str(), "the line is not SERVICE stream tcp nowait USER PROGRAM NAME");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_of(words[0]));
    if (address.sin_port == 0)
        return complain(words[0].c_str(), "no such service");
    if (getpwnam(words[4].c_str()) == nullptr)
        return complain(words[4].c_str(), "no such user");
    service->socket.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!service->socket || setsockopt(service->socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(service->socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(service->socket.get(), kBacklog) != 0)
        return complain(words[0].c_str(), strerror(errno));
    return true;
}

bool services_open(const char *path, std::vector<Service> *services)
{
    const UniqueFile file(fopen(path, "re"));
    if (!file)
        return complain(path, strerror(errno));
    UniqueText line;
    size_t room = 0;
    while (getline(line.address(), &room, file.get()) > 0) {
        Service service;
        service.words = words_of(line.get());
        if (service.words.empty())
            continue;
        if (!service_open(&service))
            return false;
        services->push_back(std::move(service));
    }
    return !services->empty() || complain(path, "names no service");
}

[[noreturn]] void program_run(const Service &service, int connection)
{
    std::vector<char *> argv;
    for (size_t index = kFixedWords; index < service.words.size(); index++)
        argv.push_back(const_cast<char *>(service.words[index].c_str()));
    argv.push_back(nullptr);
    const passwd *user = getpwnam(service.words[4].c_str());
    const bool is_itself = user != nullptr && user->pw_uid == geteuid();
    if (user == nullptr || (!is_itself && (initgroups(user->pw_name, user->pw_gid) != 0 || setgid(user->pw_gid) != 0 ||
                                           setuid(user->pw_uid) != 0)))
        _exit(1);
    signal(SIGCHLD, SIG_DFL);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(connection, stream);
    setsid();
    execv(service.words[5].c_str(), argv.data());
    syslog(LOG_ERR, "%s: %m", service.words[5].c_str());
    _exit(1);
}

void connection_take(const Service &service)
{
    const UniqueFd connection(accept4(service.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection)
        return; // the client has gone again
    const pid_t pid = fork();
    if (pid == 0)
        program_run(service, connection.get());
    if (pid < 0)
        syslog(LOG_ERR, "fork: %m");
}

[[noreturn]] void serve(const std::vector<Service> &services)
{
    setsid();
    signal(SIGCHLD, SIG_IGN); // nobody waits for the programs
    std::vector<pollfd> waits;
    waits.reserve(services.size());
    for (const Service &service : services)
        waits.push_back({service.socket.get(), POLLIN, 0});
    while (true) {
        if (poll(waits.data(), waits.size(), -1) < 0)
            continue;
        for (size_t index = 0; index < waits.size(); index++)
            if (waits[index].revents != 0)
                connection_take(services[index]);
    }
}

// Written before the parent ends, so that whoever looks finds it.
bool pid_write(pid_t pid)
{
    const UniqueFile file(fopen(kPidPath, "we"));
    return file && fprintf(file.get(), "%d\n", pid) > 0 && fflush(file.get()) == 0;
}

} // namespace

int main(int argc, char *argv[])
{
    close_range(STDERR_FILENO + 1, ~0U, 0); // locks and sockets of who starts it are not for its programs
    std::vector<Service> services;
    if (!services_open(argc > 1 ? argv[1] : "/etc/inetd.conf", &services))
        return 1;
    openlog("inetd", LOG_PID, LOG_DAEMON);
    const pid_t pid = fork();
    if (pid == 0) {
        const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            dup2(null.get(), stream);
        if (chdir("/") == 0)
            serve(services);
        _exit(1);
    }
    if (pid < 0 || !pid_write(pid)) {
        complain(kPidPath, strerror(errno));
        if (pid > 0)
            kill(pid, SIGKILL);
        return 1;
    }
    return 0;
}
