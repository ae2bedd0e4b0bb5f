// Installs that begin at the same moment, and a patch of three gibibytes.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "tests/load/load.h"
#include "tests/support/box.h"
#include "tests/support/web_install.h"

namespace
{

constexpr char kProgress[] = "/tmp/install.progress", kUploads[] = "/tmpData/@autoupdate";
constexpr double kLimit_s = 120;

// Two of the three are refused, whoever is first; only the first formats, and the others leave its progress alone.
TEST(InstallLoad, OneOfThreeStartersWins)
{
    constexpr char kInstaller[] = "/usr/norv/sbin/installer.sh";
    const int races = load_size(4, 200);
    Sandbox box;
    install_machine(box);
    box.program_answer([&](const ProgramCall &call) -> std::optional<ProgramRow> {
        if (call.path == kInstaller)
            return ProgramRow{.stays = true};
        return std::nullopt;
    });
    for (int race = 0; race < races && !HasFailure(); race++) {
        SCOPED_TRACE("race " + std::to_string(race));
        std::vector<Process> starters;
        RunOptions options = cgi_request("upload=true&status=not_install", "");
        options.input_open = true;
        for (int i = 0; i < 3; i++)
            starters.push_back(box.start({"/bin/sh", "-c", "read go; exec " + role_path("install.cgi")}, options));
        for (const Process &starter : starters)
            starter.send("\n");
        size_t running = starters.size();
        for (int tries = 0; tries < 12000 && running != 1; tries++, usleep(10000))
            running = static_cast<size_t>(std::count_if(starters.begin(), starters.end(),
                                                        [](const Process &starter) { return starter.running(); }));
        for (int tries = 0; tries < 12000 && box.calls(kInstaller).size() <= static_cast<size_t>(race); tries++)
            usleep(10000);
        EXPECT_EQ(box.calls(kInstaller).size(), static_cast<size_t>(race) + 1);
        EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
        for (Process &starter : starters)
            if (starter.running())
                starter.signal(SIGKILL);
        int refused = 0, killed = 0;
        for (Process &starter : starters) {
            const Result result = starter.wait();
            refused += result.out == error_body("error", "error_apply_lock", 41) ? 1 : 0;
            killed += result.signal == SIGKILL ? 1 : 0;
        }
        EXPECT_EQ(refused, 2);
        EXPECT_EQ(killed, 1);
        std::vector<Sandbox::Running> left = box.processes(); // the shell before the installer that it waits for
        std::sort(left.begin(), left.end(), [](const auto &a, const auto &b) { return a.pid < b.pid; });
        for (const Sandbox::Running &row : left) {
            box.signal(row.pid, SIGKILL);
            EXPECT_TRUE(box.wait_for_end(row.pid, kLimit_s));
        }
    }
    expect_unlocked(box);
    note(std::to_string(races) + " races of three starters of an install",
         "one formats, two are told error_apply_lock, the progress file is the first one's");
}

// The bytes are thrown away behind the role's back as they come, so that neither disk nor memory is needed for them.
TEST(InstallLoad, PatchOfAnySizeTakesNoMemory)
{
    constexpr size_t kPiece = 1 << 20;
    constexpr off_t kTail = 1 << 20; // what is left of it
    const auto pieces = static_cast<size_t>(load_size(32, 3 * 1024));
    Sandbox box;
    install_machine(box);
    off_t patch_bytes = -1;
    box.program_answer([&](const ProgramCall &call) -> std::optional<ProgramRow> {
        struct stat status = {};
        if (call.path == "/bin/tar" && stat(box.outside(std::string(kUploads) + "/upload.pat").c_str(), &status) == 0)
            patch_bytes = status.st_size;
        return std::nullopt;
    });
    const std::string form = patch_form("@");
    const size_t at = form.find('@');
    const std::string head = form.substr(0, at), tail = form.substr(at + 1);
    RunOptions options = cgi_request("upload=true&status=not_install", "");
    for (std::string &variable : options.env)
        if (variable.starts_with("CONTENT_LENGTH="))
            variable = "CONTENT_LENGTH=" + std::to_string(head.size() + pieces * kPiece + tail.size());
    options.input = head;
    options.input_open = true;
    options.seconds = 3600;
    Process cgi = box.start({"install.cgi"}, options);
    std::string piece(kPiece, '\0');
    for (size_t i = 0; i < kPiece; i += 61)
        piece[i] = i % 2 == 0 ? '\n' : 'x';
    UniqueFd upload;
    Held before, after;
    for (size_t i = 0; i < pieces; i++) {
        cgi.send(piece);
        if (!upload)
            for (const std::string &name : box.list(kUploads))
                upload.reset(open(box.outside(std::string(kUploads) + "/" + name).c_str(), O_RDWR | O_CLOEXEC));
        struct stat status = {};
        if (upload && fstat(upload.get(), &status) == 0 && status.st_size > kTail) {
            constexpr int kThrowAway = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
            EXPECT_EQ(fallocate(upload.get(), kThrowAway, 0, status.st_size - kTail), 0);
        }
        if (i == 8)
            before = held_by(box, cgi.pid());
        if (i + 1 == pieces)
            after = held_by(box, cgi.pid(), &before);
    }
    cgi.send(tail);
    cgi.close_input();
    EXPECT_EQ(cgi.wait().out, kStarted);
    install_child_wait(box);
    EXPECT_EQ(patch_bytes, static_cast<off_t>(pieces * kPiece));
    EXPECT_EQ(box.read_file(kProgress), error_body("wizard", "err_patch", 13)); // it is no patch
    expect_no_growth(before, after);
    note("upload of " + std::to_string(pieces) + " MiB through install.cgi",
         "arrives whole, at most " + std::to_string(after.peak_kib) + " KiB resident");
    note_held(before, after);
}

} // namespace
