// Device requests: of disks, of whatever a test has rows for, and of the board.
#include <cstdio>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/box.h"
#include "tests/support/box_talk.h"
#include "tests/support/box_text.h"

namespace
{

struct NamedRequest {
    unsigned long number;
    const char *name;
};
constexpr NamedRequest kRequests[] = {
    {0x125d, "BLKROSET"},         {0x125f, "BLKRRPART"},          {0x1260, "BLKGETSIZE"},
    {0x1261, "BLKFLSBUF"},        {0x1268, "BLKSSZGET"},          {0x127b, "BLKPBSZGET"},
    {0x80081272, "BLKGETSIZE64"}, {0x80480911, "GET_ARRAY_INFO"}, {0x80140912, "GET_DISK_INFO"},
    {0x0301, "HDIO_GETGEO"},      {0x030d, "HDIO_GET_IDENTITY"},  {0x2285, "SG_IO"},
    {0x8946, "SIOCETHTOOL"},      {0x8913, "SIOCGIFFLAGS"},       {0x8915, "SIOCGIFADDR"},
    {0x891b, "SIOCGIFNETMASK"},   {0x8923, "SIOCSIFNAME"},        {0x8927, "SIOCGIFHWADDR"},
    {0x8933, "SIOCGIFINDEX"},
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

// With a blank before it, when there is any.
std::string hex_shown(const std::string &bytes)
{
    std::string shown(bytes.empty() ? "" : " ");
    for (const char c : bytes) {
        char hex[4];
        snprintf(hex, sizeof(hex), "%02x", static_cast<unsigned char>(c));
        shown += hex;
    }
    return shown;
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

void Sandbox::request(RequestRow row)
{
    const std::lock_guard lock(box_->server->lock_);
    box_->server->request_rows_.push_back({.row = std::move(row)});
}

const RequestRow *BoxServer::request_row(const std::string &device, unsigned long request)
{
    for (Counted<RequestRow> &state : request_rows_) {
        if (state.row.request != request || !pattern_matches(state.row.device, device))
            continue;
        state.seen++;
        if (state.row.times == 0 || state.seen <= state.row.times)
            return &state.row;
    }
    return nullptr;
}

void BoxServer::answer_request(const Question &question)
{
    const std::string device = descriptor_path(question, question.ask.number[0]);
    const auto request = static_cast<unsigned long>(question.ask.number[1]);
    if (device == BOX_BOARD)
        return answer_board(question, static_cast<std::uint32_t>(request));

    const std::string words = word_shown(device) + " " + request_shown(request);
    RequestRow answer;
    std::unique_lock lock(lock_);
    const CallRow *fault = call_row("ioctl", words);
    const RequestRow *row = fault == nullptr || fault->real ? request_row(device, request) : nullptr;
    bool known = row != nullptr;
    if (known)
        answer = *row;
    if (fault != nullptr && !fault->real) {
        known = true;
        answer = {.result = static_cast<int>(fault->result), .error = fault->error};
    }
    lock.unlock();
    struct stat status {
    };
    if (!known && files_.stat(device, &status))
        known = disk_answer(request, status, &answer.bytes);

    std::string input(answer.reads, '\0');
    std::uint64_t address = question.ask.address + answer.at;
    int fd = question.fd;
    int unreadable = answer.is_pointer ? talk_peek(&fd, &address, address, sizeof(address)) : 0;
    if (unreadable == 0 && !input.empty())
        unreadable = talk_peek(&fd, input.data(), address, input.size());
    if (unreadable != 0) {
        answer = {.error = -unreadable};
        input.clear();
    }
    const std::string line = "ioctl " + words + hex_shown(input);
    lock.lock();
    record_add(line + (answer.error != 0 ? error_shown(answer.error) : ""));
    lock.unlock();
    if (!known)
        return talk_say(question.fd, BOX_REAL); // the kernel refuses it
    if (!answer.bytes.empty() && answer.error == 0)
        talk_say(question.fd, BOX_POKE, 0, 0, answer.bytes, address);
    talk_say(question.fd, BOX_RETURN, answer.result, answer.error);
}

void BoxServer::answer_board(const Question &question, std::uint32_t request)
{
    int fd = question.fd;
    const board_memory memory{.in = talk_peek, .out = talk_poke, .context = &fd};
    const std::lock_guard lock(lock_);
    const long result = board_ioctl(board_.get(), time(nullptr), request, question.ask.address, &memory);
    board_settle();
    talk_say(fd, BOX_RETURN, result < 0 ? 0 : result, result < 0 ? static_cast<int>(-result) : 0);
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

void Sandbox::board(const std::function<void(struct board &)> &change)
{
    const std::lock_guard lock(box_->server->lock_);
    change(*box_->server->board_);
    box_->server->board_settle();
}

void Sandbox::board_scenario(std::string_view text)
{
    board([&](struct board &board) {
        char error[256];
        if (board_scenario_load(&board, time(nullptr), text.data(), text.size(), error, sizeof(error)) != 0)
            ADD_FAILURE() << "sandbox: board scenario, " << error;
    });
}
