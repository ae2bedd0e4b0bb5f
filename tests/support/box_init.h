// The first process of a box (init.c): makes the namespaces and does what only a process inside can.
#pragma once

#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

#include "autocleanup/unique.h"

struct StartRequest {
    std::string path{};
    std::string cwd{};
    std::vector<std::string> closed{}; // descriptors
    std::vector<std::string> limits{}; // resource, value, resource, value ...
    std::vector<std::string> args{};   // argv[0] too
    std::vector<std::string> env{};
    int streams[3] = {-1, -1, -1};
};

class BoxInit
{
  public:
    BoxInit() = default;
    ~BoxInit(); // ends the box with all its processes

    // Starts the process and waits for the namespaces. False when the kernel refuses them: `refusal` tells what and
    // why. Any other fault ends the test program.
    [[nodiscard]] bool begin(std::string *refusal);
    // False when errno, of a step that has just failed, is such a refusal.
    [[nodiscard]] static bool refused(const std::string &step, std::string *refusal);
    [[nodiscard]] int take_root() { return root_.release(); }
    [[nodiscard]] int reports() const { return reports_.get(); } // one packet "ended PID STATUS" per process

    // Makes the folder that take_root() tells the root of all to come. Of the host there is what `binds` names, three
    // words each: its path, where it shows below ".", and "ro" or "rw". False with errno.
    [[nodiscard]] bool enter(const std::vector<std::string> &binds);

    // A pid as the box counts, or -1 with errno.
    [[nodiscard]] pid_t start(const StartRequest &request);
    bool signal(pid_t pid, int number);
    // Descriptors that belong to the caller, or -1 with errno.
    [[nodiscard]] int open(const std::string &path);
    [[nodiscard]] int socket(int domain, int type, int protocol);

  private:
    struct Answer {
        long number = -1;
        std::string step{};
        UniqueFd descriptor{};
    };
    Answer command(const std::vector<std::string> &words, const int *streams = nullptr);
    Answer answer_receive();

    std::mutex one_at_a_time_{};
    UniqueFd commands_{}, reports_{}, root_{};
    pid_t pid_ = -1;
};
