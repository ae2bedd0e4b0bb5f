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
#include <map>
#include <string>
#include <unistd.h>

#include "tests/support/sandbox.h"
#include "tests/support/sanitized.h"
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
    long own_kib = 0;                    // of it what no file stands behind: data, heap, stack
    size_t descriptors = 0;              // while it waits
    size_t processes = 0;                // of the whole box, those that have ended and were not waited for among them
};

// Asking the box takes a descriptor for a moment, and so may what a process does: the number most often seen counts.
inline size_t descriptors_of(const Sandbox &box, pid_t pid)
{
    std::map<size_t, int> times_seen;
    for (int look = 0; look < 300; look++, usleep(300))
        times_seen[box.list(process_path(pid, "fd")).size()]++;
    const auto less = [](const auto &left, const auto &right) { return left.second < right.second; };
    return std::max_element(times_seen.begin(), times_seen.end(), less)->first;
}

// `before`: what is hoped for; as long as there are more descriptors it looks again.
inline Held held_by(const Sandbox &box, pid_t pid, const Held *before = nullptr)
{
    const auto kib = [&](const char *file, const char *name) {
        const std::string lines = box.read_file(process_path(pid, file));
        const size_t at = lines.find(name);
        EXPECT_NE(at, std::string::npos) << lines;
        return at == std::string::npos ? 0 : atol(lines.c_str() + at + strlen(name));
    };
    Held held{.resident_kib = kib("status", "VmRSS:"),
              .peak_kib = kib("status", "VmHWM:"),
              .own_kib = kib("smaps_rollup", "Anonymous:"),
              .descriptors = descriptors_of(box, pid)};
    for (int tries = 0; before != nullptr && held.descriptors > before->descriptors && tries < 50; tries++)
        held.descriptors = descriptors_of(box, pid);
    for (const std::string &name : box.list(BOX_PROC))
        held.processes += atoi(name.c_str()) > 1 ? 1 : 0; // 1 is the box's own
    return held;
}

#ifdef SANDBOX_SANITIZED
inline constexpr bool kMemoryTells = false; // freed memory is kept for a while
#else
inline constexpr bool kMemoryTells = true;
#endif

// The loads may let a process touch a few pages that it has had all along.
inline void expect_no_growth(const Held &before, const Held &after)
{
    constexpr long kPagesTouched_kib = 64;
    if (kMemoryTells) {
        EXPECT_LE(after.own_kib, before.own_kib + kPagesTouched_kib);
    }
    EXPECT_LE(after.descriptors, before.descriptors);
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
    testing::Test::RecordProperty("memory", std::to_string(before.own_kib) + " to " + std::to_string(after.own_kib) +
                                                " of " + std::to_string(after.resident_kib) + " KiB");
    testing::Test::RecordProperty("descriptors",
                                  std::to_string(before.descriptors) + " to " + std::to_string(after.descriptors));
}
