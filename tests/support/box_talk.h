// The test's side of a talk with a program (talk.h). A program that has gone is no fault here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/support/wire.h"

[[nodiscard]] bool talk_receive(int fd, void *bytes, size_t count);

// One answer with its bytes.
void talk_say(int fd, box_step step, std::int64_t result = 0, int error = 0, std::string_view bytes = "",
              std::uint64_t address = 0);

// What a program did after BOX_TELL or BOX_MOUNT: its result or a negative errno value.
[[nodiscard]] std::int64_t talk_outcome(int fd);

// The memory of the program; `context` points to the descriptor. Both return 0 or a negative errno value, as a
// board_memory wants them.
int talk_peek(void *context, void *to, std::uint64_t from, size_t bytes);
int talk_poke(void *context, std::uint64_t to, const void *from, size_t bytes);
