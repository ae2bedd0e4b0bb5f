#include "tests/support/box_server.h"

#include <algorithm>
#include <cerrno>
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

#include "tests/support/box_text.h"

namespace
{

constexpr int kStuckSeconds = 10; // a program that begins to talk and stops is given up

// What the record needs to know of each call.
struct CallForm {
    const char *name;
    const char *form;
};
constexpr CallForm kCalls[] = {
#define CALL_FORM(name, form) {#name, form},
    BOX_CALLS(CALL_FORM)
#undef CALL_FORM
};

// Calls that go on to the kernel when no row answers them; the others of their kind would reach the whole machine.
constexpr bool is_harmless(std::uint32_t call)
{
    return call == BOX_sethostname || (call >= BOX_sleep && call <= BOX_alarm) || call >= BOX_FIRST_WATCHED;
}

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

// The test's side of a talk (talk.h). A program that has gone is no fault here.
bool receive(int fd, void *bytes, size_t count)
{
    return count == 0 || recv(fd, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

void send_all(int fd, const void *bytes, size_t count)
{
    const char *at = static_cast<const char *>(bytes);
    while (count > 0) {
        const ssize_t sent = send(fd, at, count, MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        at += sent;
        count -= static_cast<size_t>(sent);
    }
}

void say(int fd, box_step step, std::int64_t result = 0, int error = 0, std::string_view bytes = "",
         std::uint64_t address = 0)
{
    const box_answer answer{.step = step, .error = error, .result = result, .address = address, .bytes = bytes.size()};
    send_all(fd, &answer, sizeof(answer));
    send_all(fd, bytes.data(), bytes.size());
}

std::int64_t outcome_receive(int fd)
{
    std::int64_t outcome = -EIO;
    return receive(fd, &outcome, sizeof(outcome)) ? outcome : -EIO;
}

// Both return 0 or a negative errno value, as a board_memory wants them.
int memory_peek(void *context, void *to, std::uint64_t from, size_t bytes)
{
    const int fd = *static_cast<int *>(context);
    const box_answer answer{.step = BOX_PEEK, .error = 0, .result = 0, .address = from, .bytes = bytes};
    send_all(fd, &answer, sizeof(answer));
    const auto status = static_cast<int>(outcome_receive(fd));
    if (status != 0)
        return status;
    return receive(fd, to, bytes) ? 0 : -EIO;
}

int memory_poke(void *context, std::uint64_t to, const void *from, size_t bytes)
{
    say(*static_cast<int *>(context), BOX_POKE, 0, 0, {static_cast<const char *>(from), bytes}, to);
    return 0;
}

std::string error_shown(int error)
{
    return std::string(" = ") + strerrorname_np(error);
}

struct NamedRequest {
    unsigned long number;
    const char *name;
};
constexpr NamedRequest kRequests[] = {
    {0x125d, "BLKROSET"},         {0x125f, "BLKRRPART"},          {0x1260, "BLKGETSIZE"},
    {0x1261, "BLKFLSBUF"},        {0x1268, "BLKSSZGET"},          {0x127b, "BLKPBSZGET"},
    {0x80081272, "BLKGETSIZE64"}, {0x80480911, "GET_ARRAY_INFO"}, {0x80140912, "GET_DISK_INFO"},
    {0x0301, "HDIO_GETGEO"},      {0x030d, "HDIO_GET_IDENTITY"},  {0x2285, "SG_IO"},
};

std::string request_shown(unsigned long request)
{
    for (const NamedRequest &known : kRequests)
        if (known.number == request)
            return known.name;
    char text[24];
    snprintf(text, sizeof(text), "0x%lx", request);
    return text;
}

template <typename Number> std::string bytes_of(Number number)
{
    return {reinterpret_cast<const char *>(&number), sizeof(number)};
}

// What any disk of a plain file would answer. False for other requests.
bool disk_answer(unsigned long request, const struct stat &status, std::string *bytes)
{
    const auto size = static_cast<std::uint64_t>(status.st_size);
    switch (request) {
    case 0x125f: // BLKRRPART
    case 0x1261: // BLKFLSBUF
        return true;
    case 0x1260: // BLKGETSIZE
        *bytes = bytes_of(size / 512);
        return true;
    case 0x80081272: // BLKGETSIZE64
        *bytes = bytes_of(size);
        return true;
    case 0x1268: // BLKSSZGET
    case 0x127b: // BLKPBSZGET
        *bytes = bytes_of(std::int32_t{512});
        return true;
    default:
        return false;
    }
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
    for (ssize_t bytes; (bytes = recv(log_socket_.get(), packet, sizeof(packet), MSG_DONTWAIT)) >= 0;) {
        LogLine line = log_line({packet, static_cast<size_t>(bytes)});
        const std::lock_guard lock(lock_);
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
    if (!receive(talk.get(), &question.ask, sizeof(question.ask)) || question.ask.call >= BOX_CALL_COUNT)
        return;
    for (int i = 0; i < BOX_TEXTS; i++) {
        question.texts[i].resize(question.ask.text_bytes[i]);
        if (!receive(talk.get(), question.texts[i].data(), question.texts[i].size()))
            return;
    }
    log_take(); // what the program said before it asked
    question_answer(&question);
}

void BoxServer::question_answer(Question *question)
{
    switch (question->ask.call) {
    case BOX_program:
        return answer_program(*question);
    case BOX_input:
        return answer_input(*question);
    case BOX_ioctl:
        return answer_request(*question);
    case BOX_mount:
        return answer_mount(*question);
    case BOX_umount2:
        return answer_umount(*question);
    default:
        return answer_call(*question);
    }
}

// --- programs

void BoxServer::answer_program(const Question &question)
{
    const std::vector<std::string> words = words_split(question.texts[2]);
    const auto count = std::min(static_cast<size_t>(question.ask.number[0]), words.size());
    ProgramCall call;
    call.path = question.texts[0];
    call.cwd = question.texts[1];
    call.args.assign(words.begin() + std::min<std::ptrdiff_t>(1, static_cast<std::ptrdiff_t>(count)),
                     words.begin() + static_cast<std::ptrdiff_t>(count));
    call.env.assign(words.begin() + static_cast<std::ptrdiff_t>(count), words.end());
    const std::string args = words_shown(call.args);
    const std::string line = call.path + (args.empty() ? "" : " ") + args;

    std::unique_lock lock(lock_);
    record_add("run " + line);
    calls_.push_back(call);
    Program &program = programs_[call.path];
    if (program.is_host)
        return say(question.fd, BOX_EXEC, 0, 0, BOX_HOST + call.path);
    ProgramRow row;
    bool found = false;
    for (size_t i = 0; i < program.rows.size() && !found; i++) {
        found = pattern_matches(program.rows[i].args, args) &&
                (program.rows[i].times == 0 || program.used[i] < program.rows[i].times);
        if (found) {
            row = program.rows[i];
            program.used[i]++;
        }
    }
    if (!found && !program.rows.empty())
        unexpected_ += line + "\n";
    if (row.reads_input) {
        const size_t place = calls_.size() - 1;
        waiting_for_input_[place] = std::move(row);
        return say(question.fd, BOX_INPUT, static_cast<std::int64_t>(place));
    }
    lock.unlock();
    program_finish(question, row, call);
}

// The program comes back with its input, and is then answered.
void BoxServer::answer_input(const Question &question)
{
    std::unique_lock lock(lock_);
    const auto place = static_cast<size_t>(question.ask.number[0]);
    const auto waiting = waiting_for_input_.find(place);
    if (waiting == waiting_for_input_.end())
        return;
    const ProgramRow row = std::move(waiting->second);
    waiting_for_input_.erase(waiting);
    calls_[place].input = question.texts[0];
    const ProgramCall call = calls_[place];
    lock.unlock();
    program_finish(question, row, call);
}

// Not under the lock: the effect may use the whole box.
void BoxServer::program_finish(const Question &question, const ProgramRow &row, const ProgramCall &call)
{
    if (row.effect)
        row.effect(call);
    if (!row.output.empty())
        say(question.fd, BOX_OUTPUT, STDOUT_FILENO, 0, row.output);
    if (!row.error.empty())
        say(question.fd, BOX_OUTPUT, STDERR_FILENO, 0, row.error);
    if (row.delay_ms > 0 || row.stays)
        say(question.fd, BOX_WAIT, row.stays ? -1 : row.delay_ms);
    if (row.signal != 0)
        say(question.fd, BOX_KILL, row.signal);
    else
        say(question.fd, BOX_RETURN, row.exit_status);
}

// --- library calls

std::string BoxServer::descriptor_path(const Question &question, std::int64_t fd) const
{
    const std::string path = files_.link_target(std::string(BOX_PROC) + "/" + std::to_string(question.ask.pid) +
                                                "/fd/" + std::to_string(fd));
    return path.empty() ? std::to_string(fd) : path;
}

std::string BoxServer::args_shown(const Question &question) const
{
    const std::int64_t *number = question.ask.number;
    const std::string *text = question.texts;
    std::vector<std::string> words;
    for (const char *form = kCalls[question.ask.call].form; *form != '\0'; form++) {
        char shown[64];
        switch (*form) {
        case 's':
            words.push_back(*text++);
            continue;
        case 'f':
            words.push_back(descriptor_path(question, *number++));
            continue;
        case 'd':
            snprintf(shown, sizeof(shown), "%ld", *number++);
            break;
        case 'o':
            snprintf(shown, sizeof(shown), "%04lo", static_cast<unsigned long>(*number++));
            break;
        case 'x':
            snprintf(shown, sizeof(shown), "0x%lx", static_cast<unsigned long>(*number++));
            break;
        default:
            snprintf(shown, sizeof(shown), *form == 'T' ? "%ld.%06ld" : "%ld.%09ld", number[0], number[1]);
            number += 2;
        }
        words.emplace_back(shown);
    }
    return words_shown(words);
}

void BoxServer::answer_call(const Question &question)
{
    const std::uint32_t number = question.ask.call;
    const std::string name = kCalls[number].name;
    const std::string args = args_shown(question);
    const std::lock_guard lock(lock_);
    if (number == BOX_execve) {
        record_add("execve " + args + error_shown(static_cast<int>(-question.ask.number[0])));
        return say(question.fd, BOX_REAL);
    }
    const CallRow *row = call_row(name, args);
    if (row == nullptr && number >= BOX_FIRST_WATCHED)
        return say(question.fd, BOX_REAL);
    const int error = row != nullptr ? row->error : 0;
    record_add(name + (args.empty() ? "" : " ") + args + (error != 0 ? error_shown(error) : ""));
    if (row != nullptr ? row->real : is_harmless(number))
        return say(question.fd, BOX_REAL);
    if (row != nullptr && !row->bytes.empty() && question.ask.address != 0)
        say(question.fd, BOX_POKE, 0, 0, row->bytes, question.ask.address);
    say(question.fd, BOX_RETURN, row != nullptr ? row->result : 0, error);
}

void BoxServer::answer_mount(const Question &question)
{
    const auto &[source, target, type] = question.texts;
    const std::string args = args_shown(question);
    std::unique_lock lock(lock_);
    const CallRow *row = call_row("mount", args);
    if (row != nullptr && !row->real) {
        record_add("mount " + args + (row->error != 0 ? error_shown(row->error) : ""));
        return say(question.fd, BOX_RETURN, row->result, row->error);
    }
    lock.unlock();
    say(question.fd, BOX_MOUNT, 0, 0, volume(source));
    const std::int64_t outcome = outcome_receive(question.fd);
    lock.lock();
    record_add("mount " + args + (outcome < 0 ? error_shown(static_cast<int>(-outcome)) : ""));
    if (outcome == 0) {
        mounts_.emplace_back(target, source + " " + target + " " + type + " rw,relatime 0 0\n");
        mounts_write();
    }
}

void BoxServer::answer_umount(const Question &question)
{
    const std::string args = args_shown(question);
    std::unique_lock lock(lock_);
    const CallRow *row = call_row("umount2", args);
    if (row != nullptr && !row->real) {
        record_add("umount2 " + args + (row->error != 0 ? error_shown(row->error) : ""));
        return say(question.fd, BOX_RETURN, row->result, row->error);
    }
    lock.unlock();
    say(question.fd, BOX_TELL);
    const std::int64_t outcome = outcome_receive(question.fd);
    lock.lock();
    record_add("umount2 " + args + (outcome < 0 ? error_shown(static_cast<int>(-outcome)) : ""));
    for (size_t i = mounts_.size(); outcome == 0 && i-- > 0;) {
        if (mounts_[i].first != question.texts[0])
            continue;
        mounts_.erase(mounts_.begin() + static_cast<std::ptrdiff_t>(i));
        mounts_write();
        break;
    }
}

// The table of mounts as programs read it, unless the test has made one of its own.
void BoxServer::mounts_write()
{
    std::string now;
    if (files_.read("/proc/mounts", &now) && now != mounts_shown_)
        return;
    mounts_shown_ = "box / tmpfs rw,relatime 0 0\n";
    for (const auto &[target, line] : mounts_)
        mounts_shown_ += line;
    files_.write("/proc/mounts", mounts_shown_, 0644);
}

// --- requests

void BoxServer::answer_request(const Question &question)
{
    const std::string device = descriptor_path(question, question.ask.number[0]);
    const auto request = static_cast<unsigned long>(question.ask.number[1]);
    if (device == BOX_BOARD)
        return answer_board(question, static_cast<std::uint32_t>(request));

    std::string bytes;
    std::string input;
    std::unique_lock lock(lock_);
    const RequestRow *row = request_row(device, request);
    const RequestRow answer = row != nullptr ? *row : RequestRow();
    lock.unlock();
    if (answer.reads > 0) {
        input.resize(answer.reads);
        int fd = question.fd;
        if (memory_peek(&fd, input.data(), question.ask.address, input.size()) != 0)
            return;
    }
    struct stat status {
    };
    const bool known = row != nullptr || (files_.stat(device, &status) && disk_answer(request, status, &bytes));
    if (row != nullptr)
        bytes = answer.bytes;

    std::string line = "ioctl " + word_shown(device) + " " + request_shown(request);
    for (const char c : input) {
        char hex[4];
        snprintf(hex, sizeof(hex), "%s%02x", &c == input.data() ? " " : "", static_cast<unsigned char>(c));
        line += hex;
    }
    lock.lock();
    record_add(line + (answer.error != 0 ? error_shown(answer.error) : ""));
    lock.unlock();
    if (!known)
        return say(question.fd, BOX_REAL); // the kernel refuses it
    if (!bytes.empty() && answer.error == 0)
        say(question.fd, BOX_POKE, 0, 0, bytes, question.ask.address);
    say(question.fd, BOX_RETURN, answer.result, answer.error);
}

void BoxServer::answer_board(const Question &question, std::uint32_t request)
{
    int fd = question.fd;
    const board_memory memory{.in = memory_peek, .out = memory_poke, .context = &fd};
    const std::lock_guard lock(lock_);
    const long result = board_ioctl(board_.get(), time(nullptr), request, question.ask.address, &memory);
    board_settle();
    say(fd, BOX_RETURN, result < 0 ? 0 : result, result < 0 ? static_cast<int>(-result) : 0);
}

// Brings what the board noted into the record, and makes its device readable while an event waits.
void BoxServer::board_settle()
{
    char line[BOARD_NOTE_ROOM];
    while (board_transcript_next(board_.get(), &board_told_, line, sizeof(line)) == 1)
        record_add(std::string("board ") + line);
    char byte = 0;
    while (read(board_pipe_.get(), &byte, 1) == 1)
        continue;
    if (board_event_pending(board_.get()) != 0)
        static_cast<void>(!write(board_pipe_.get(), &byte, 1));
}

// --- tables

void BoxServer::program(const std::string &path, std::vector<ProgramRow> rows)
{
    files_.link(path, BOX_STANDIN);
    const std::lock_guard lock(lock_);
    Program &program = programs_[path];
    program.is_host = false;
    for (ProgramRow &row : rows) {
        program.rows.push_back(std::move(row));
        program.used.push_back(0);
    }
}

void BoxServer::host_program(const std::string &path)
{
    files_.link(path, BOX_STANDIN);
    const std::lock_guard lock(lock_);
    programs_[path].is_host = true;
}

void BoxServer::call(CallRow row)
{
    const std::lock_guard lock(lock_);
    for (std::uint32_t i = 0; i < BOX_CALL_COUNT; i++) {
        if (row.call != kCalls[i].name)
            continue;
        call_rows_.push_back({.row = std::move(row)});
        shared_.watched |= std::uint64_t{1} << i;
        shared_write();
        return;
    }
    ADD_FAILURE() << "sandbox: no call named " << row.call;
}

// In place: programs have it mapped.
void BoxServer::shared_write()
{
    const UniqueFd fd(files_.open(BOX_SHARED, O_WRONLY));
    if (pwrite(fd.get(), &shared_, sizeof(shared_), 0) != sizeof(shared_))
        ADD_FAILURE() << "sandbox: cannot write " BOX_SHARED;
}

void BoxServer::request(RequestRow row)
{
    const std::lock_guard lock(lock_);
    request_rows_.push_back({.row = std::move(row)});
}

void BoxServer::compress_sleeps(int factor)
{
    const std::lock_guard lock(lock_);
    shared_.sleep_factor = static_cast<std::uint32_t>(factor);
    shared_write();
}

void BoxServer::board(const std::function<void(struct board &)> &change)
{
    const std::lock_guard lock(lock_);
    change(*board_);
    board_settle();
}

std::string BoxServer::volume(const std::string &source)
{
    std::string name = source.empty() || source[0] != '/' ? source : source.substr(1);
    std::replace(name.begin(), name.end(), '/', ':');
    if (name.empty())
        name = "none";
    const std::string path = BOX_VOLUMES "/" + name;
    files_.directory(path, 0755);
    return path;
}

const CallRow *BoxServer::call_row(const std::string &name, const std::string &args)
{
    for (CallState &state : call_rows_) {
        if (state.row.call != name || !pattern_matches(state.row.args, args))
            continue;
        state.seen++;
        if (state.seen > state.row.skip && (state.row.times == 0 || state.seen <= state.row.skip + state.row.times))
            return &state.row;
    }
    return nullptr;
}

const RequestRow *BoxServer::request_row(const std::string &device, unsigned long request)
{
    for (RequestState &state : request_rows_) {
        if (state.row.request != request || !pattern_matches(state.row.device, device))
            continue;
        state.seen++;
        if (state.row.times == 0 || state.seen <= state.row.times)
            return &state.row;
    }
    return nullptr;
}

// --- record

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

Record BoxServer::record(size_t from) const
{
    const std::lock_guard lock(lock_);
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
    const std::lock_guard lock(lock_);
    return {log_.begin() + static_cast<std::ptrdiff_t>(from), log_.end()};
}

std::vector<ProgramCall> BoxServer::calls() const
{
    const std::lock_guard lock(lock_);
    return calls_;
}

std::string BoxServer::unexpected_calls() const
{
    const std::lock_guard lock(lock_);
    return unexpected_;
}

bool BoxServer::wait_for_line(std::string_view pattern, double seconds) const
{
    std::unique_lock lock(lock_);
    size_t seen = 0;
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
        while (seen < record_.lines.size())
            if (pattern_matches(pattern, record_.lines[seen++]))
                return true;
        return false;
    });
}

bool BoxServer::wait_for_end(pid_t pid, double seconds, int *status) const
{
    std::unique_lock lock(lock_);
    const bool ended =
        changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return ended_.count(pid) != 0; });
    if (ended && status != nullptr)
        *status = ended_.at(pid);
    return ended;
}
