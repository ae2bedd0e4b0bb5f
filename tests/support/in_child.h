// Runs a part of a test in a process of its own: for what lasts as long as its process, or should end with it.
#pragma once

#include <functional>
#include <string_view>
#include <sys/types.h>
#include <type_traits>

// Runs `body` in a child and returns what it returned. Expectations that fail in it fail the test. `meanwhile` runs
// here with the child's pid, in no thread: a fork beside a thread that is about to allocate would leave the child
// without memory under the sanitizer.
int in_child(const std::function<int()> &body, const std::function<void(pid_t)> &meanwhile = {});
// The same for a body without a result.
template <typename Body> std::enable_if_t<std::is_void_v<std::invoke_result_t<Body>>> in_child(const Body &body)
{
    in_child([&body] { return body(), 0; });
}

// Ends the whole test program: a test that this machine cannot run has neither passed nor failed. ctest knows it by the
// line that is printed, others by the exit status.
[[noreturn]] void not_run(std::string_view why);
