#include "tests/support/box.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "tests/support/box_talk.h"
#include "tests/support/box_text.h"

namespace
{

constexpr int kStuckSeconds = 10; // a program that begins to talk and stops is given up

constexpr const char *kPriorities[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};

// "<11>Jan  1 00:00:00 ident[7]: text" as the C library sends it.
LogLine log_line(std::string_view packet)
{
    LogLine line;
    const auto priority_end = packet.find('>');
    if (packet.empty() || packet[0] != '<' || priority_end == packet.npos) {
        line.text = packet;
        return line;
    }
    line.priority = LOG_PRI(atoi(std::string(packet.substr(1, priority_end - 1)).c_str()));
    constexpr size_t kStampBytes = sizeof("Jan  1 00:00:00 ") - 1;
    packet.remove_prefix(priority_end + 1);
    packet.remove_prefix(std::min(kStampBytes, packet.size()));
    const auto colon = packet.find(": ");
    line.ident = packet.substr(0, std::min(packet.find('['), colon));
    line.text = colon == packet.npos ? packet : packet.substr(colon + 2);
    return line;
}

UniqueFd socket_bind(const BoxFiles &files, int type, const char *path)
{
    UniqueFd fd(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string outside = files.outside(path);
    memcpy(address.sun_path, outside.c_str(), outside.size() + 1);
    struct stat status;
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        (type == SOCK_STREAM && listen(fd.get(), 128) != 0) || !files.stat(path, &status) ||
        chmod(outside.c_str(), 0666) != 0)
        ADD_FAILURE() << "sandbox: cannot listen at " << path << ": " << strerror(errno);
    return fd;
}

} // namespace

BoxServer::BoxServer(const BoxFiles &files, int reports) : files_(files), reports_(reports)
{
    log_socket_ = socket_bind(files_, SOCK_DGRAM, BOX_LOG);
    ask_socket_ = socket_bind(files_, SOCK_STREAM, BOX_ASK);
    wake_.reset(eventfd(0, EFD_CLOEXEC));
    files_.write(BOX_SHARED, "", 0644);
    shared_write();
    files_.fifo(BOX_BOARD, 0660);
    board_pipe_.reset(files_.open(BOX_BOARD, O_RDWR | O_NONBLOCK));
    board_init(board_.get(), time(nullptr));
    mounts_write();
    thread_ = std::thread(&BoxServer::serve, this);
}

BoxServer::~BoxServer()
{
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

void BoxServer::serve()
{
    pollfd sources[] = {{.fd = wake_.get(), .events = POLLIN, .revents = 0},
                        {.fd = ask_socket_.get(), .events = POLLIN, .revents = 0},
                        {.fd = log_socket_.get(), .events = POLLIN, .revents = 0},
                        {.fd = reports_, .events = POLLIN, .revents = 0}};
    while (sources[0].revents == 0) {
        if (poll(sources, 4, -1) < 0)
            continue;
        if (sources[1].revents != 0)
            question_take();
        log_take();
        if (sources[3].revents != 0 && !report_take())
            sources[3].fd = -1; // the box has ended
    }
}

void BoxServer::log_take()
{
    char packet[65536];
    for (;;) {
        const std::lock_guard lock(lock_); // a line is at the socket or in the record, see caught_up
        const ssize_t bytes = recv(log_socket_.get(), packet, sizeof(packet), MSG_DONTWAIT);
        if (bytes < 0)
            return;
        LogLine line = log_line({packet, static_cast<size_t>(bytes)});
        record_add(std::string("log ") + kPriorities[line.priority] + " " + line_shown(line.text));
        log_.push_back(std::move(line));
    }
}

bool BoxServer::report_take()
{
    char packet[128];
    const ssize_t bytes = recv(reports_, packet, sizeof(packet) - 1, MSG_DONTWAIT);
    if (bytes <= 0)
        return false;
    packet[bytes] = '\0';
    int pid = 0;
    int status = 0;
    sscanf(packet, "ended %d %d", &pid, &status);
    log_take(); // what it said before
    const std::lock_guard lock(lock_);
    ended_[pid] = status;
    changed_.notify_all();
    return true;
}

void BoxServer::question_take()
{
    const UniqueFd talk(accept4(ask_socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const timeval limit{.tv_sec = kStuckSeconds, .tv_usec = 0};
    if (!talk || setsockopt(talk.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) != 0)
        return;
    Question question;
    question.fd = talk.get();
    if (!talk_receive(talk.get(), &question.ask, sizeof(question.ask)) || question.ask.call >= BOX_CALL_COUNT)
        return;
    for (int i = 0; i < BOX_TEXTS; i++) {
        question.texts[i].resize(question.ask.text_bytes[i]);
        if (!talk_receive(talk.get(), question.texts[i].data(), question.texts[i].size()))
            return;
    }
    log_take(); // what the program said before it asked
    switch (question.ask.call) {
    case BOX_program:
        return answer_program(question);
    case BOX_input:
        return answer_input(question);
    case BOX_ioctl:
        return answer_request(question);
    case BOX_mount:
    case BOX_umount2:
        return answer_mounts(question);
    default:
        return answer_call(question);
    }
}

std::string BoxServer::descriptor_path(const Question &question, std::int64_t fd) const
{
    const std::string path = files_.link_target(std::string(BOX_PROC) + "/" + std::to_string(question.ask.pid) +
                                                "/fd/" + std::to_string(fd));
    return path.empty() ? std::to_string(fd) : path;
}

void BoxServer::record_add(const std::string &line)
{
    record_.lines.push_back(line);
    changed_.notify_all();
}

size_t BoxServer::record_size() const
{
    const std::lock_guard lock(lock_);
    return record_.lines.size();
}

// The lock, with all in the record that has been said by now: on a busy machine the thread may be behind.
std::unique_lock<std::mutex> BoxServer::caught_up() const
{
    std::unique_lock lock(lock_);
    pollfd log = {.fd = log_socket_.get(), .events = POLLIN, .revents = 0};
    for (int i = 0; i < kStuckSeconds * 1000 && std::this_thread::get_id() != thread_.get_id(); i++) {
        if (poll(&log, 1, 0) <= 0)
            break;
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.lock();
    }
    return lock;
}

Record BoxServer::record(size_t from) const
{
    const auto lock = caught_up();
    Record part;
    part.lines.assign(record_.lines.begin() + static_cast<std::ptrdiff_t>(from), record_.lines.end());
    return part;
}

size_t BoxServer::log_size() const
{
    const std::lock_guard lock(lock_);
    return log_.size();
}

std::vector<LogLine> BoxServer::log(size_t from) const
{
    const auto lock = caught_up();
    return {log_.begin() + static_cast<std::ptrdiff_t>(from), log_.end()};
}

bool Sandbox::wait_for(std::string_view pattern, double seconds) const
{
    const BoxServer &server = *box_->server;
    std::unique_lock lock(server.lock_);
    size_t seen = 0;
    return server.changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
        while (seen < server.record_.lines.size())
            if (pattern_matches(pattern, server.record_.lines[seen++]))
                return true;
        return false;
    });
}

bool BoxServer::wait_for_end(pid_t pid, double seconds, int *status) const
{
    std::unique_lock lock(lock_);
    const bool ended =
        changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return ended_.contains(pid); });
    if (ended && status != nullptr)
        *status = ended_.at(pid);
    return ended;
}
