// Key-value files on a memory file system. A get is held against open, read and close of the same file, a set against
// write, fsync and rename of the same content.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "lib/file.h"

namespace
{

// A configuration of the usual size: 200 lines, 6 KB.
struct BenchFile {
    std::string text;
    std::string path = "/dev/shm/norv_key_value_bench.conf";
    std::string copy_path = path + ".copy";

    BenchFile()
    {
        for (int i = 0; i < 200; i++)
            text += "support_feature_" + std::to_string(i) + "=\"value " + std::to_string(i) + "\"\n";
        write(path.c_str());
    }
    ~BenchFile() { unlink(path.c_str()); }
    BenchFile(const BenchFile &) = delete;
    BenchFile &operator=(const BenchFile &) = delete;

    void write(const char *to) const
    {
        const int fd = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || fsync(fd) != 0 ||
            close(fd) != 0) {
            perror(to);
            exit(1);
        }
    }
};

void open_read_close(benchmark::State &state)
{
    const BenchFile file;
    char buf[16384];
    while (state.KeepRunning()) {
        const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(read(fd, buf, sizeof(buf)));
        close(fd);
    }
}
BENCHMARK(open_read_close);

void get(benchmark::State &state, const char *key)
{
    const BenchFile file;
    char value[64];
    while (state.KeepRunning())
        benchmark::DoNotOptimize(NLIBCFileGetKeyValue(file.path.c_str(), key, value, sizeof(value), 0));
}
BENCHMARK_CAPTURE(get, first, "support_feature_0");
BENCHMARK_CAPTURE(get, middle, "support_feature_100");
BENCHMARK_CAPTURE(get, last, "support_feature_199");
BENCHMARK_CAPTURE(get, missing, "support_nothing");

// What every role does before it knows which one it is.
void get_three(benchmark::State &state)
{
    const BenchFile file;
    char value[64];
    while (state.KeepRunning())
        for (const char *key : {"support_feature_0", "support_feature_100", "support_feature_199"})
            benchmark::DoNotOptimize(NLIBCFileGetKeyValue(file.path.c_str(), key, value, sizeof(value), 0));
}
BENCHMARK(get_three);

void write_fsync_rename(benchmark::State &state)
{
    const BenchFile file;
    while (state.KeepRunning()) {
        file.write(file.copy_path.c_str());
        rename(file.copy_path.c_str(), file.path.c_str());
    }
}
BENCHMARK(write_fsync_rename);

void set(benchmark::State &state, const char *key)
{
    const BenchFile file;
    while (state.KeepRunning())
        benchmark::DoNotOptimize(NLIBCFileSetKeyValue(file.path.c_str(), key, "value", kConfFormat));
}
BENCHMARK_CAPTURE(set, first, "support_feature_0");
BENCHMARK_CAPTURE(set, last, "support_feature_199");

} // namespace
