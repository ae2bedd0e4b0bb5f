// Starting a program and waiting for it, against vfork and exec of the same program. The caller is small, or has
// 64 MiB of touched memory, or may open as many descriptors as this machine lets it: none of it should show.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "lib/proc.h"

static constexpr char kProgram[] = "/bin/true";

static int vfork_and_exec()
{
    char *const argv[] = {const_cast<char *>(kProgram), nullptr};
    const pid_t pid = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): it is what we measure against
    if (pid == 0) {
        execv(kProgram, argv);
        _exit(255);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

static int fork_and_exec()
{
    const pid_t pid = NLIBCFork(kExecDetached);
    if (pid == 0) {
        execl(kProgram, kProgram, nullptr);
        _exit(255);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

static int exec_detached()
{
    return NLIBCExecl(kProgram, kExecDetached, nullptr);
}

static int exec_close_all()
{
    return NLIBCExecl(kProgram, kExecDetached | kForkCloseAll, nullptr);
}

static int popen_and_pclose()
{
    FILE *stream = NLIBCPopen(kProgram, "r", nullptr);
    return stream == nullptr ? -1 : NLIBCPclose(stream);
}

static constexpr rlim_t kFewDescriptors = 1024;
static constexpr rlim_t kMostDescriptors = RLIM_INFINITY; // up to the hard limit

static void spawn_bench(benchmark::State &state, int (*start)(), size_t touched_bytes, rlim_t descriptors)
{
    const std::vector<char> memory(touched_bytes, 1);
    benchmark::DoNotOptimize(memory.data());
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit limit = {std::min(descriptors, before.rlim_max), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
    double best_ns = 1e18;
    for ([[maybe_unused]] auto _ : state) {
        const auto begun = std::chrono::steady_clock::now();
        if (start() != 0)
            state.SkipWithError("the program failed");
        const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begun;
        best_ns = std::min(best_ns, taken.count());
    }
    state.counters["best_ns"] = best_ns; // on a busy machine no average is of the program alone
    state.counters["descriptors"] = static_cast<double>(limit.rlim_cur);
    setrlimit(RLIMIT_NOFILE, &before);
}

#define SPAWN_BENCH(start)                                                                                             \
    BENCHMARK_CAPTURE(spawn_bench, start##_small, start, 1, kFewDescriptors)->UseRealTime();                           \
    BENCHMARK_CAPTURE(spawn_bench, start##_64MiB, start, 64 << 20, kFewDescriptors)->UseRealTime();                    \
    BENCHMARK_CAPTURE(spawn_bench, start##_most_descriptors, start, 1, kMostDescriptors)->UseRealTime()

SPAWN_BENCH(vfork_and_exec);
SPAWN_BENCH(exec_detached);
SPAWN_BENCH(exec_close_all);
SPAWN_BENCH(popen_and_pclose);
SPAWN_BENCH(fork_and_exec);
