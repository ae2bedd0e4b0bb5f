// The state of swap control, a JSON object with the key "state", and /proc/swaps as JSON.
#pragma once

#include "autocleanup/unique_json.h"

inline constexpr char kSwapStatePath[] = "/tmp/norv_swap_status.json";
inline constexpr char kSwapLockPath[] = "/tmp/norv_swap_ctl.lock";
inline constexpr int kSwapLockSeconds = 60; // how long to wait for it; held from reading the state to writing it
inline constexpr char kSwapStopped[] = "None";
inline constexpr char kSwapRunning[] = "Ready";

// Reads the state file; a missing one is made with kSwapStopped. NULL, logged, with 0x0900, 0x4000 when it holds no
// JSON object, 0x0200.
[[nodiscard]] json_object *swap_json_file_read();
// Sets the state and writes the file. Returns 0; -1, logged, with 0x0b00 or 0x0200.
[[nodiscard]] int swap_json_file_write(json_object *object, const char *state);

// The state file under its lock. Members go in reverse order: the lock is given back last.
struct SwapStateFile {
    UniqueFd lock;
    UniqueJson object;
};
// Waits for the lock and reads the file. Returns 0; -1, logged.
[[nodiscard]] int swap_state_open(SwapStateFile *file);

// The text of the key "state" or "Filename", owned by the object. NULL for any other key, logged, with 0x0d00, and
// with 0x2000 when the object has no such text.
[[nodiscard]] const char *swap_json_get(json_object *object, const char *key);

// Whether the state is `wanted`.
[[nodiscard]] bool swap_state_is(json_object *object, const char *wanted);
// The same where it must be. Returns 0; -1, logged, with 0x4000.
[[nodiscard]] int swap_state_check(json_object *object, const char *wanted);

// The lines of /proc/swaps, an array of objects: names from its first line, values as texts. NULL with 0x0900, 0x0200.
[[nodiscard]] json_object *swap_json_from_proc_swaps();
