// What the sweep knows of each system call of x86-64: its name, how its arguments read, and whether it can fail.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

enum class CallFailure {
    kPlain,  // fails by not being done
    kDone,   // fails although done: close gives the descriptor back whatever it says
    kSleeps, // a wait; the sweep lets it pass at once
    kNever,  // cannot fail in a sound program, or belongs to the allocator or the C runtime
};

struct SystemCallRule {
    long number;
    std::string_view name;
    // One letter per argument: p path, d directory descriptor and path (two arguments), f descriptor, n decimal, o
    // octal, - not told. Later arguments are not told.
    std::string_view arguments;
    CallFailure failure = CallFailure::kPlain;
};

// The rule of a system call; one that the tables lack fails plainly. Without a name it reads "call 57".
[[nodiscard]] SystemCallRule system_call_rule(long number);

// A stopped process's call as text: "openat /a.conf 0 0666". Paths lose the prefix `tree` and are absolute.
[[nodiscard]] std::string system_call_text(pid_t process, const SystemCallRule &rule,
                                           const unsigned long long *arguments, std::string_view tree);

// Where a link of /proc/PID leads, such as "fd/3" or "cwd"; "" when it does not exist.
[[nodiscard]] std::string process_link(pid_t process, std::string_view link);
