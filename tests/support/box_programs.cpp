// Stand-ins: how their calls are told and answered.
#include <algorithm>
#include <csignal>
#include <unistd.h>

#include "tests/support/box.h"
#include "tests/support/box_talk.h"
#include "tests/support/box_text.h"

void Sandbox::program(std::string_view path, std::vector<ProgramRow> rows)
{
    box_->files->link(path, BOX_STANDIN);
    BoxServer &server = *box_->server;
    const std::lock_guard lock(server.lock_);
    BoxServer::Program &program = server.programs_[std::string(path)];
    program.is_host = false;
    for (ProgramRow &row : rows)
        program.rows.push_back({.row = std::move(row)});
}

void Sandbox::program_answer(std::function<std::optional<ProgramRow>(const ProgramCall &)> answer)
{
    const std::lock_guard lock(box_->server->lock_);
    box_->server->program_answer_ = std::move(answer);
}

std::vector<ProgramCall> Sandbox::calls(std::string_view path) const
{
    const std::lock_guard lock(box_->server->lock_);
    std::vector<ProgramCall> calls = box_->server->calls_;
    std::erase_if(calls, [&](const ProgramCall &call) { return !pattern_matches(path, call.path); });
    return calls;
}

std::string Sandbox::programs_called() const
{
    std::string lines;
    for (const ProgramCall &call : calls())
        lines += call.path + (call.args.empty() ? "" : " ") + words_shown(call.args) + "\n";
    return lines;
}

std::string Sandbox::unexpected_calls() const
{
    const std::lock_guard lock(box_->server->lock_);
    return box_->server->unexpected_;
}

void BoxServer::host_program(const std::string &path)
{
    files_.copy(path, BOX_HOST + path, 0755);
    files_.link(path, BOX_STANDIN);
    const std::lock_guard lock(lock_);
    programs_[path].is_host = true;
}

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
    if (program_answer_) {
        const auto answer = program_answer_;
        lock.unlock();
        const std::optional<ProgramRow> row = answer(call);
        if (row)
            return program_finish(question, *row, call);
        lock.lock();
    }
    Program &program = programs_[call.path];
    if (program.is_host)
        return talk_say(question.fd, BOX_EXEC, 0, 0, BOX_HOST + call.path);
    const auto found = std::find_if(program.rows.begin(), program.rows.end(), [&](const Counted<ProgramRow> &known) {
        return pattern_matches(known.row.args, args) && (known.row.times == 0 || known.seen < known.row.times);
    });
    ProgramRow row;
    if (found != program.rows.end()) {
        row = found->row;
        found->seen++;
    } else if (!program.rows.empty()) {
        unexpected_ += line + "\n";
    }
    if (row.reads_input) {
        const size_t place = calls_.size() - 1;
        waiting_for_input_[place] = std::move(row);
        return talk_say(question.fd, BOX_INPUT, static_cast<std::int64_t>(place));
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
        talk_say(question.fd, BOX_OUTPUT, STDOUT_FILENO, 0, row.output);
    if (!row.error.empty())
        talk_say(question.fd, BOX_OUTPUT, STDERR_FILENO, 0, row.error);
    if (row.delay_ms > 0 || row.stays)
        talk_say(question.fd, BOX_WAIT, row.stays ? -1 : row.delay_ms);
    if (row.signal != 0)
        talk_say(question.fd, BOX_KILL, row.signal);
    else
        talk_say(question.fd, BOX_RETURN, row.exit_status);
}
