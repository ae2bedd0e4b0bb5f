// What a box holds, and what of it a program has left behind.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <thread>
#include <unistd.h>

#include "tests/support/box.h"
#include "tests/support/box_text.h"
#include "tests/support/wire.h"

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kGraceMs = 250;

// The words of each line of a table below the box's /proc.
std::vector<std::vector<std::string>> table(const std::string &text)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        rows.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return rows;
}

bool any_matches(const std::vector<std::string> &patterns, const std::string &text)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string &pattern) { return pattern_matches(pattern, text); });
}

} // namespace

// Its path; "" when it has ended. On its way there it has no arguments any more, but may still hold locks.
static std::string process_path(const BoxFiles &files, const std::string &folder)
{
    std::string line;
    if (files.read(folder + "/cmdline", &line) && !line.empty())
        return line.substr(0, line.find('\0'));
    const bool is_there = files.read(folder + "/stat", &line); // "7 (install.cgi) R 1 ..."
    const size_t name_end = line.rfind(')');
    if (!is_there || name_end == std::string::npos || line.compare(name_end, 3, ") Z") == 0)
        return "";
    const size_t name_at = line.find('(') + 1;
    return line.substr(name_at, name_end - name_at);
}

std::vector<Sandbox::Running> Box::processes() const
{
    std::vector<Sandbox::Running> running;
    for (const std::string &name : files->list(BOX_PROC)) {
        const pid_t pid = atoi(name.c_str());
        if (pid <= 1 || std::find(started.begin(), started.end(), pid) != started.end())
            continue; // the first process, or one that is waited for
        const std::string line = process_path(*files, BOX_PROC "/" + name);
        if (line.empty())
            continue;
        running.push_back({.pid = pid, .name = line.substr(line.rfind('/') + 1)});
    }
    return running;
}

// A lock lives as long as a descriptor of it does, whoever took it.
std::vector<std::string> Box::locked_files(pid_t pid) const
{
    std::vector<std::string> paths;
    const std::string folder = BOX_PROC "/" + std::to_string(pid);
    for (const std::string &fd : files->list(folder + "/fdinfo")) {
        std::string info;
        if (files->read(folder + std::string("/fdinfo/").append(fd), &info) &&
            info.find("\nlock:") != std::string::npos)
            paths.push_back(files->link_target(folder + std::string("/fd/").append(fd)));
    }
    return paths;
}

BoxState Box::state()
{
    BoxState state{.files = files->tree(), .others = {}};
    for (const Sandbox::Running &process : processes()) {
        state.others.push_back("process " + process.name);
        for (const std::string &file : locked_files(process.pid))
            state.others.push_back("lock " + file);
    }

    std::string text;
    if (!files->read(BOX_PROC "/1/mountinfo", &text))
        ADD_FAILURE() << "sandbox: cannot read the mounts: " << strerror(errno);
    for (const auto &row : table(text))
        state.others.push_back("mount " + row.at(4));

    // These tables show the reader's own namespace, so that the reader must come from inside.
    const std::pair<const char *, const char *> kinds[] = {{"sem", "semaphore"}, {"shm", "memory"}, {"msg", "queue"}};
    for (const auto &[file, kind] : kinds) {
        for (const auto &row :
             table(descriptor_read(UniqueFd(init.open(std::string(BOX_PROC "/sysvipc/") + file)).get()))) {
            char key[24];
            snprintf(key, sizeof(key), " 0x%08x", static_cast<unsigned>(atol(row[0].c_str())));
            if (row[0] != "key")
                state.others.push_back(kind + std::string(key));
        }
    }

    std::sort(state.others.begin(), state.others.end());
    return state;
}

std::string Box::leftovers(const BoxState &after) const
{
    std::vector<std::string> left;
    std::set_difference(after.others.begin(), after.others.end(), before.others.begin(), before.others.end(),
                        std::back_inserter(left));
    for (const std::string &change : tree_changes(before.files, after.files))
        if (change[0] == '+')
            left.push_back(change.substr(1));
    std::string undeclared;
    for (const std::string &what : left)
        if (!any_matches(leaves, what) && !any_matches(started_leaves, what))
            undeclared += "  " + what + "\n";
    return undeclared;
}

BoxState Box::settled_state()
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kGraceMs);
    BoxState now = state();
    while (leftovers(now).find("  process ") != std::string::npos && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        now = state();
    }
    return now;
}

// The search for leaks at a program's end opens its report, and says one line in it, when a signal kills the program
// under its hands.
static bool is_of_killed(const std::string &report)
{
    return report.empty() || (report.find("Unable to get registers from thread") != std::string::npos &&
                              std::count(report.begin(), report.end(), '\n') <= 1);
}

void Box::sanitizer_reports() const
{
    for (const std::string &name : files->list(BOX_DIR)) {
        const std::string path = BOX_DIR "/" + name;
        std::string report;
        if (path.compare(0, strlen(BOX_SANITIZER), BOX_SANITIZER) != 0 || !files->read(path, &report))
            continue;
        if (!is_of_killed(report))
            ADD_FAILURE() << report;
        if (!report.empty()) // one that is about to be written is looked at the next time
            files->remove(path);
    }
}
