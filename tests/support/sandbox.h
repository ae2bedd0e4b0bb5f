// Runs the real executable in a private root and shows everything it does.
//
// A Sandbox is a small machine: own user, mount, pid, network, UTS and IPC namespaces, a root on a memory file system
// with the host's libraries read-only, and nothing else of the host. Outside programs are stand-ins that answer from a
// table; what no host has (the board device, block and md requests, clock, reboot, module loading) is answered by a
// preloaded library. Log lines, program calls, board requests, sleeps and the other calls go into one ordered record.
//
//     Sandbox box;
//     box.file("/etc.defaults/norvinfo.conf", "supportraid=\"yes\"\n");
//     box.program("/sbin/mdadm", {{.args = "-S *", .exit_status = 1}});
//     const Result result = box.run({"norvcleanpartition"});
//     EXPECT_EQ(result.exit_status, 0);
//     EXPECT_TRUE(result.record.in_order({"run /sbin/mdadm -S /dev/md0", "log err *Fail to swap stop!"}));
//
// After each run leftovers fail the test: processes, mounts, semaphores, shared memory, locks, and new files that were
// not declared. Where the kernel refuses the namespaces the test ends as skipped, with the reason.
//
// Patterns: '*' stands for any text, all else for itself.
#pragma once

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

struct board; // platform/board/board.h

struct LogLine {
    int priority = 0; // LOG_ERR and so on, without the facility
    std::string ident{};
    std::string text{};
};

// One call of an outside program.
struct ProgramCall {
    std::string path{};
    std::vector<std::string> args{}; // argv[1] and on
    std::vector<std::string> env{};  // "NAME=value"
    std::string cwd{};
    std::string input{}; // standard input, when the row asks for it
};

// How a stand-in answers a call. Of a table the first row that matches and is not used up.
struct ProgramRow {
    std::string args = "*"; // pattern of the arguments as the record shows them: "-S /dev/md0"
    std::string output{};   // for standard output
    std::string error{};    // for standard error
    int exit_status = 0;
    int times = 0;                                     // answers so many calls; 0: any number
    int delay_ms = 0;                                  // before it ends
    int signal = 0;                                    // ends by this signal instead
    bool stays = false;                                // runs until it is killed
    bool reads_input = false;                          // reads standard input to its end, for ProgramCall::input
    std::function<void(const ProgramCall &)> effect{}; // done before it answers: box.file(...) and the like
};

// How a library call is answered, by name and arguments as the record shows them. A row of "ioctl" also has requests of
// sockets told ("socket:* SIOCGIFADDR"), and with `real` leaves them to the table of requests.
struct CallRow {
    std::string call{};      // "settimeofday", "open": see docs/testing.md for the names
    std::string args = "*";  // pattern; of "ioctl" device and name of the request: "/dev/md0 GET_ARRAY_INFO"
    int error = 0;           // errno; the call then returns -1 or NULL
    std::int64_t result = 0; // else what it returns without doing anything
    std::string bytes{};     // stored where sysinfo or statvfs wants its result
    bool real = false;       // else the true call is made
    int skip = 0;            // lets so many matching calls by first
    int times = 0;           // 0: any number
};

// How a request on a plain file below /dev is answered, unless a CallRow of "ioctl" does it first.
struct RequestRow {
    std::string device{};      // pattern: "/dev/md0"
    unsigned long request = 0; // ioctl number
    std::string bytes{};       // stored at the argument
    size_t reads = 0;          // so many bytes at the argument go into the record, in hex
    size_t at = 0;             // both so many bytes behind the argument's start
    bool is_pointer = false;   // what stands there is a pointer to them
    int result = 0;
    int error = 0; // errno; the call then returns -1
    int times = 0; // 0: any number
};

// What happened, in order. A call that failed ends in " = ENOENT" or the like. One line of text per event:
//   log err main.cpp:71(main) Failed to get key supportraid from /etc.defaults/norvinfo.conf
//   run /sbin/mdadm -S /dev/md0          arguments with blanks or none at all stand in '...'
//   board ...                            a line of the board's transcript
//   ioctl /dev/sda BLKGETSIZE64          numbers without a name in hex
//   sleep 15    usleep 50000    select 2.000000    poll 500
//   settimeofday 946684800.000000    sethostname nas    reboot 0x1234567
//   mount /dev/md0 /_disk ext4 0x1    umount2 /_disk 0x0    swapon /dev/md1 0x0
class Record
{
  public:
    std::vector<std::string> lines{};

    // Whether each pattern matches a line behind the one before it. Tells what is missing and shows the record.
    [[nodiscard]] testing::AssertionResult in_order(const std::vector<std::string> &patterns) const;
    [[nodiscard]] int count(std::string_view pattern) const;
    // The matching lines, each with a newline.
    [[nodiscard]] std::string text(std::string_view pattern = "*") const;
};

struct Result {
    int exit_status = -1;   // 0 to 255; -1 when a signal ended it
    int signal = 0;         // that signal
    bool timed_out = false; // killed at its time limit; has failed the test
    std::string out{}, err{};
    std::vector<LogLine> log{};
    Record record{};                          // since the start of this program
    std::vector<std::string> files_changed{}; // "+/tmp/new" "-/tmp/gone" "~/etc/changed", sorted

    [[nodiscard]] std::string log_text() const; // the texts, each with a newline
};

struct Limit {
    int resource; // RLIMIT_NOFILE and so on
    rlim_t value;
};

// Where standard output leads.
enum class Output {
    kKept,   // to Result::out
    kFull,   // to a device that has no room
    kBroken, // to a pipe that nobody reads
};

struct RunOptions {
    std::vector<std::string> env{}; // "NAME=value", beside the PATH that every program gets, or in its place
    bool empty_env = false;         // nothing but `env`
    std::string input{};            // standard input
    bool input_open = false;        // standard input is a stream that stays open behind `input`: Process::send
    Output output = Output::kKept;
    std::string cwd = "/";
    std::optional<std::string> argv0{}; // what the program is told as its name
    std::vector<Limit> limits{};
    std::vector<int> closed{};         // standard descriptors that are closed at start
    double seconds = 20;               // time limit
    std::vector<std::string> leaves{}; // patterns of what may stay behind, see Sandbox::leaves
};

class Box;

// A started program. It must be waited for before its box goes.
class Process
{
  public:
    [[nodiscard]] pid_t pid() const; // as the box counts
    [[nodiscard]] bool running() const;
    void signal(int number) const;
    void send(std::string_view text) const; // to an open standard input
    void close_input();
    [[nodiscard]] std::string out() const; // what it wrote so far
    [[nodiscard]] std::string err() const;
    Result wait(); // within its time limit

  private:
    friend class Sandbox;
    struct State;
    explicit Process(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

class Sandbox
{
  public:
    Sandbox();
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;
    ~Sandbox(); // fails the test when a program still runs

    // Files, by absolute path inside; parents are made. A symbolic link at the path itself is replaced.
    void file(std::string_view path, std::string_view content, mode_t mode = 0644);
    void directory(std::string_view path, mode_t mode = 0755);
    void symlink(std::string_view path, std::string_view target);
    void device(std::string_view path, std::uint64_t bytes); // a plain sparse file that answers block requests
    void remove(std::string_view path);                      // with everything below; nothing there is no fault
    [[nodiscard]] std::string read_file(std::string_view path) const;              // a missing file fails the test
    [[nodiscard]] bool exists(std::string_view path) const;                        // a symbolic link counts as itself
    [[nodiscard]] mode_t mode(std::string_view path) const;                        // permission bits
    [[nodiscard]] std::vector<std::string> list(std::string_view directory) const; // sorted names
    // A path by which the test itself reaches a file whose folders are no symbolic links.
    [[nodiscard]] std::string outside(std::string_view path) const;

    // A stand-in at a path. Rows are added to those there; a call that no row matches ends with 0 and no output, and
    // is listed by unexpected_calls when there are rows.
    void program(std::string_view path, std::vector<ProgramRow> rows = {});
    // Asked first about each call of a program, /bin/sh among them; none: the tables answer. It must not wait for a
    // program. Of its row, `times` and `reads_input` have no meaning.
    void program_answer(std::function<std::optional<ProgramRow>(const ProgramCall &)> answer);
    // The host's own program, recorded like a stand-in. /bin/sh is always there.
    void host_program(std::string_view path);
    // A file of the host, copied and not recorded.
    void host_file(std::string_view path, const std::string &host_path, mode_t mode = 0755);
    [[nodiscard]] std::vector<ProgramCall> calls(std::string_view path = "*") const;
    [[nodiscard]] std::string programs_called() const; // "/sbin/mdadm -S /dev/md0\n" each, /bin/sh among them
    [[nodiscard]] std::string unexpected_calls() const;

    void call(CallRow row);
    void request(RequestRow row);
    // Sleeps and the time limits of select and poll take 1/factor of their time; the program's clock tells
    // the time they would have taken.
    void compress_sleeps(int factor = 1000);
    // What may stay behind after every run of this box: "/tmp/new.file", "process findhostd", "mount /mnt",
    // "semaphore 0x09335808", "memory 0x0000002a", "lock /tmp/a.lock".
    void leaves(std::vector<std::string> patterns);
    // The board behind /dev/norvbios. A scenario (docs/board.md) sets its state; `change` works on the state itself. A
    // box without a board has no such device.
    void board_scenario(std::string_view text);
    void board(const std::function<void(struct board &)> &change);
    void board_remove();
    // The directory that shows when a program mounts this source; it stays between mounts.
    [[nodiscard]] std::string volume(std::string_view source);

    // Runs a role by name, or a program of the box by absolute path, to its end.
    Result run(const std::vector<std::string> &args, const RunOptions &options = {});
    [[nodiscard]] Process start(const std::vector<std::string> &args, const RunOptions &options = {});

    // Processes that no Process stands for, daemons among them.
    struct Running {
        pid_t pid;
        std::string name;
    };
    [[nodiscard]] std::vector<Running> processes() const;
    void signal(pid_t pid, int number) const; // one that has just ended is no fault
    // Waits until such a process has ended; false after the time. `status` receives its raw wait status.
    [[nodiscard]] bool wait_for_end(pid_t pid, double seconds = 10, int *status = nullptr) const;

    [[nodiscard]] Record record() const; // of the whole life of the box
    // Waits until the record holds a matching line; false after the time.
    [[nodiscard]] bool wait_for(std::string_view pattern, double seconds = 10) const;

    // A socket of the box's network, close-on-exec: rtnetlink to make interfaces, packet and UDP sockets to talk to
    // daemons. The caller closes it.
    [[nodiscard]] int socket(int domain, int type, int protocol = 0) const;

  private:
    std::shared_ptr<Box> box_;
};
