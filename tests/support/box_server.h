// Serves a box from the test's own process: keeps the record, and answers programs from the tables of the test.
//
// One thread takes log lines, questions (wire.h) and reports of ended processes. A log line that was sent before a
// question or an end is taken before it, so that the record shows one true order.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/board/board.h"
#include "tests/support/box_files.h"
#include "tests/support/sandbox.h"
#include "tests/support/wire.h"

// A row of a table, and how many calls have come to it.
template <typename Row> struct Counted {
    Row row{};
    int seen = 0;
};

class BoxServer
{
  public:
    // Listens in the box; `reports` is BoxInit's.
    BoxServer(const BoxFiles &files, int reports);
    ~BoxServer();

    void host_program(const std::string &path);
    std::string volume(const std::string &source);

    // What happened, from a position on.
    [[nodiscard]] size_t record_size() const;
    [[nodiscard]] Record record(size_t from = 0) const;
    [[nodiscard]] size_t log_size() const;
    [[nodiscard]] std::vector<LogLine> log(size_t from = 0) const;
    [[nodiscard]] bool wait_for_end(pid_t pid, double seconds, int *status) const;

  private:
    friend class Sandbox; // its tables are filled by the test, and are walked here
    struct Program {
        std::vector<Counted<ProgramRow>> rows{};
        bool is_host = false; // its file stands below BOX_HOST
    };
    struct Question {
        int fd = -1; // the talk
        box_ask ask{};
        std::string texts[BOX_TEXTS]{};
    };

    void serve();
    void log_take();
    bool report_take(); // false at the end of the box
    void question_take();

    void answer_program(const Question &question);
    void answer_input(const Question &question);
    void program_finish(const Question &question, const ProgramRow &row, const ProgramCall &call);
    void answer_request(const Question &question);
    void answer_board(const Question &question, std::uint32_t request);
    void answer_mounts(const Question &question);
    void answer_call(const Question &question);

    // Under the lock.
    void record_add(const std::string &line);
    const CallRow *call_row(const std::string &name, const std::string &args);
    const RequestRow *request_row(const std::string &device, unsigned long request);
    void board_settle();

    [[nodiscard]] std::unique_lock<std::mutex> caught_up() const;
    [[nodiscard]] std::string args_shown(const Question &question) const;
    [[nodiscard]] std::string descriptor_path(const Question &question, std::int64_t fd) const;
    void mount_forget(const std::string &target);
    void mounts_write();
    void shared_write();

    const BoxFiles &files_;
    int reports_;
    UniqueFd log_socket_{}, ask_socket_{}, wake_{}, board_pipe_{};

    mutable std::mutex lock_{};
    mutable std::condition_variable changed_{};
    Record record_{};
    std::vector<LogLine> log_{};
    std::vector<ProgramCall> calls_{};
    std::string unexpected_{};
    std::map<pid_t, int> ended_{}; // raw wait status
    std::map<std::string, Program> programs_{};
    std::function<std::optional<ProgramRow>(const ProgramCall &)> program_answer_{};
    std::map<size_t, ProgramRow> waiting_for_input_{}; // by place of the call
    std::vector<Counted<CallRow>> call_rows_{};
    std::vector<Counted<RequestRow>> request_rows_{};
    box_shared shared_{.watched = 0, .sleep_factor = 1};
    std::unique_ptr<struct board> board_ = std::make_unique<struct board>();
    std::uint64_t board_told_ = 0; // lines of its transcript in the record
    struct Mount {
        std::string source{}, target{}, type{};
    };
    std::vector<Mount> mounts_{};
    std::string mounts_shown_{};

    std::thread thread_{};
};
