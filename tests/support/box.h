// One box: its first process, its files, its server, and what it holds.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/support/box_files.h"
#include "tests/support/box_init.h"
#include "tests/support/box_server.h"
#include "tests/support/sandbox.h"

// What a box holds at one moment.
struct BoxState {
    FileTree files{};
    std::vector<std::string> others{}; // "process NAME", "mount /TARGET" and so on, sorted
};

class Box
{
  public:
    BoxInit init{};
    std::unique_ptr<BoxFiles> files{};
    std::unique_ptr<BoxServer> server{};
    std::vector<std::string> leaves{};
    // The programs that have not been waited for, what the box held before the first of them, and what they may leave.
    std::vector<pid_t> started{};
    BoxState before{};
    std::vector<std::string> started_leaves{};

    // Makes it all. False when the kernel refuses, with the reason.
    [[nodiscard]] bool begin(std::string *refusal);

    [[nodiscard]] std::vector<Sandbox::Running> processes() const; // but for those in `started`
    [[nodiscard]] BoxState state();
    // The state once children that are about to end, now that their parent has, are gone: a moment at most.
    [[nodiscard]] BoxState settled_state();
    // What there is more than before and nobody declared, one per line.
    [[nodiscard]] std::string leftovers(const BoxState &after) const;
    void sanitizer_reports() const; // fail the test

  private:
    // What of the host shows inside, as BoxInit::enter takes it; makes the places.
    [[nodiscard]] std::vector<std::string> host_binds() const;
    [[nodiscard]] std::vector<std::string> locked_files(pid_t pid) const;
};

// The place of a role's executable inside, "" when there is no such role.
[[nodiscard]] std::string role_path(const std::string &name);
