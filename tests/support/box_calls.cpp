// Library calls: how they are told, and which of them are answered.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "tests/support/box.h"
#include "tests/support/box_talk.h"
#include "tests/support/box_text.h"

namespace
{

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
    return call == BOX_sethostname || (call >= BOX_sleep && call <= BOX_poll) || call >= BOX_FIRST_WATCHED;
}

} // namespace

void Sandbox::call(CallRow row)
{
    BoxServer &server = *box_->server;
    const std::lock_guard lock(server.lock_);
    for (std::uint32_t i = 0; i < BOX_CALL_COUNT; i++) {
        if (row.call != kCalls[i].name)
            continue;
        std::erase_if(server.call_rows_, [&](const Counted<CallRow> &known) { // true calls end what was said of them
            const bool is_true = row.real || (known.row.real && known.row.times == 0);
            return is_true && known.row.call == row.call && known.row.args == row.args;
        });
        server.call_rows_.push_back({.row = std::move(row)});
        server.shared_.watched |= std::uint64_t{1} << i;
        server.shared_write();
        return;
    }
    ADD_FAILURE() << "sandbox: no call named " << row.call;
}

void Sandbox::compress_sleeps(int factor)
{
    const std::lock_guard lock(box_->server->lock_);
    box_->server->shared_.sleep_factor = static_cast<std::uint32_t>(factor);
    box_->server->shared_write();
}

// In place: programs have it mapped.
void BoxServer::shared_write()
{
    const UniqueFd fd(files_.open(BOX_SHARED, O_WRONLY));
    if (pwrite(fd.get(), &shared_, sizeof(shared_), 0) != sizeof(shared_))
        ADD_FAILURE() << "sandbox: cannot write " BOX_SHARED;
}

const CallRow *BoxServer::call_row(const std::string &name, const std::string &args)
{
    for (Counted<CallRow> &state : call_rows_) {
        if (state.row.call != name || !pattern_matches(state.row.args, args))
            continue;
        state.seen++;
        if (state.seen > state.row.skip && (state.row.times == 0 || state.seen <= state.row.skip + state.row.times))
            return &state.row;
    }
    return nullptr;
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
            snprintf(shown, sizeof(shown), "%ld.%06ld", number[0], number[1]);
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
        return talk_say(question.fd, BOX_REAL);
    }
    const CallRow *row = call_row(name, args);
    if (row == nullptr && number >= BOX_FIRST_WATCHED)
        return talk_say(question.fd, BOX_REAL);
    const int error = row != nullptr ? row->error : 0;
    record_add(name + (args.empty() ? "" : " ") + args + (error != 0 ? error_shown(error) : ""));
    if (row != nullptr ? row->real : is_harmless(number))
        return talk_say(question.fd, BOX_REAL);
    if (row != nullptr && !row->bytes.empty() && question.ask.address != 0)
        talk_say(question.fd, BOX_POKE, 0, 0, row->bytes, question.ask.address);
    talk_say(question.fd, BOX_RETURN, row != nullptr ? row->result : 0, error);
}
