// How a program that is started fails. In the last two it ends well and has done nothing.
#pragma once

#include <csignal>
#include <optional>
#include <string>

#include "tests/support/sandbox.h"

struct ProgramFault {
    const char *name;
    std::optional<ProgramRow> row; // none: there is no such program
    bool is_failure = true;        // as who started it can see
};

inline const ProgramFault kProgramFaults[] = {
    {"missing", {}},
    {"exit 1", ProgramRow{.error = "no\n", .exit_status = 1}},
    {"exit 255", ProgramRow{.exit_status = 255}},
    {"killed", ProgramRow{.signal = SIGKILL}},
    {"idle garbage", ProgramRow{.output = std::string(70000, '\xfe'), .error = "\1 0 0\n"}, false},
    {"idle silent", ProgramRow{}, false}};
