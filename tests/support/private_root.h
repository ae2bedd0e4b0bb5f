// A root directory of its own for library calls that read absolute paths or keep what they read for the life of their
// process. For whole programs there is the Sandbox.
#pragma once

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

class PrivateRoot
{
  public:
    PrivateRoot(); // with empty folders /dev, /etc, /etc.defaults, /tmp
    ~PrivateRoot();
    PrivateRoot(const PrivateRoot &) = delete;
    PrivateRoot &operator=(const PrivateRoot &) = delete;

    // Ends the test as not run where the kernel lets this user have none; so does the constructor.
    static void require();
    // Makes a folder the root of this process, for a user other than root in a user namespace: his own files are then
    // as open to it as they are to root. False when that fails.
    [[nodiscard]] static bool enter(const std::string &path);

    // Files by their absolute path in the root.
    void write(std::string_view path, std::string_view text) const;
    [[nodiscard]] std::string read(std::string_view path) const;

    // Runs `body` in a child that sees this root, as in_child does.
    int run(const std::function<int()> &body) const;
    template <typename Body> std::enable_if_t<std::is_void_v<std::invoke_result_t<Body>>> run(const Body &body) const
    {
        run([&body] { return body(), 0; });
    }

    // The log lines since the last call, as "3 unit.cpp:# text\n": priority, and # for the line number.
    [[nodiscard]] std::string log() const;

  private:
    void log_take() const;

    ScratchDir dir_;
    int log_socket_;
    mutable std::string lines_{}; // of the log, taken so far
};
