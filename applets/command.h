// Commands of a tool: its first argument names what to do.
#pragma once

#include <span>

struct Command {
    char name[32];
    int (*run)(int argc, char *argv[]); // takes the process's arguments; 0 is success
    const char *usage;                  // its lines of the usage text
};

enum class CommandEnd { kDone, kFailed, kUnknown };

// Runs the command that argv[1] names; of two rows with one name the last one counts, and the empty name is none. Says
// "Excution Error" on standard output when it fails.
[[nodiscard]] CommandEnd command_run(std::span<const Command> commands, int argc, char *argv[]);

// Prints the usage lines of all rows.
void command_usage_print(std::span<const Command> commands);
