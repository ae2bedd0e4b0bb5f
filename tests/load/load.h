// What the load tests share: how much of it, and what a process holds meanwhile.
//
// Each test runs in seconds as part of all tests, and in full under scripts/reliability, which makes a table of what
// they note.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "tests/support/sandbox.h"
#include "tests/support/wire.h"

// How much of a load: `brief` as a test, `full` when NORV_LOAD is "full", ten times `brief` when it is "quick".
inline int load_size(int brief, int full)
{
    const char *load = getenv("NORV_LOAD");
    const std::string word = load == nullptr ? "" : load;
    return word == "full" ? full : word == "quick" ? brief * 10 : brief;
}

// The file of a process below /proc.
inline std::string process_path(pid_t pid, const char *file)
{
    return BOX_PROC "/" + std::to_string(pid) + "/" + file;
}

struct Held {
    long resident_kib = 0, peak_kib = 0; // memory now, and the most there ever was
    size_t descriptors = 0;
    size_t processes = 0; // of the whole box, those that have ended and were not waited for among them
};

inline Held held_by(const Sandbox &box, pid_t pid)
{
    const std::string status = box.read_file(process_path(pid, "status"));
    const auto kib = [&](const char *name) {
        const size_t at = status.find(name);
        return at == std::string::npos ? 0 : atol(status.c_str() + at + strlen(name));
    };
    Held held{.resident_kib = kib("VmRSS:"), .peak_kib = kib("VmHWM:"), .descriptors = 0, .processes = 0};
    held.descriptors = SIZE_MAX;
    for (int look = 0; look < 300; look++, usleep(300)) // asking the box takes one for a moment
        held.descriptors = std::min(held.descriptors, box.list(process_path(pid, "fd")).size());
    for (const std::string &name : box.list(BOX_PROC))
        held.processes += atoi(name.c_str()) > 1 ? 1 : 0; // 1 is the box's own
    return held;
}

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kMemoryTells = false; // freed memory is kept for a while
#else
inline constexpr bool kMemoryTells = true;
#endif

// The loads may let a process touch pages that it has had all along, and no more than `kept_kib` beside.
inline void expect_no_growth(const Held &before, const Held &after, long kept_kib = 0)
{
    constexpr long kPagesTouched_kib = 256;
    if (kMemoryTells) {
        EXPECT_LE(after.resident_kib, before.resident_kib + kPagesTouched_kib + kept_kib);
    }
    EXPECT_LE(after.descriptors, before.descriptors + 1); // one may have been seen while it asked the box
    EXPECT_EQ(after.processes, before.processes);
}

// A row of the table.
inline void note(const std::string &load, const std::string &seen)
{
    testing::Test::RecordProperty("load", load);
    testing::Test::RecordProperty("seen", seen);
}
inline void note_held(const Held &before, const Held &after)
{
    testing::Test::RecordProperty("memory", std::to_string(before.resident_kib) + " to " +
                                                std::to_string(after.resident_kib) + " KiB");
    testing::Test::RecordProperty("descriptors",
                                  std::to_string(before.descriptors) + " to " + std::to_string(after.descriptors));
}
