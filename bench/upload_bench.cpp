// An upload of 64 MiB on a memory file system, held against a plain copy of the same bytes: a loop of read and write
// with a buffer of 64 KiB, and one fsync.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "install/upload.h"

namespace
{

constexpr size_t kBytes = 64 << 20;
const std::string kBoundary = "----WebKitFormBoundary7MA4YWxkTrZu0gW";
constexpr char kFolder[] = "/dev/shm/norv_upload_bench";

void require(bool holds, const char *what)
{
    if (holds)
        return;
    perror(what);
    exit(1);
}

enum Kind { kRandom, kText, kZeros, kNewlines, kNearBoundaries };

std::string content(Kind kind)
{
    std::mt19937 random(1);
    std::string bytes;
    bytes.reserve(kBytes + 4096);
    while (bytes.size() < kBytes)
        switch (kind) {
        case kRandom:
            bytes += static_cast<char>(random());
            break;
        case kText:
            bytes += "a line of text, about as long as they are\r\n";
            break;
        case kZeros:
            bytes.append(4096, '\0');
            break;
        case kNewlines:
            bytes.append(4096, '\n');
            break;
        case kNearBoundaries:
            bytes += "\r\n--" + kBoundary.substr(0, kBoundary.size() - 1);
            break;
        }
    bytes.resize(kBytes);
    return bytes;
}

// The form as standard input, and a folder for files.
class Form
{
  public:
    explicit Form(Kind kind)
    {
        const std::string form = "--" + kBoundary +
                                 "\r\nContent-Disposition: form-data; name=\"filename\"; filename=\"a.pat\"\r\n\r\n" +
                                 content(kind) + "\r\n--" + kBoundary + "--\r\n";
        fd_ = UniqueFd(memfd_create("form", MFD_CLOEXEC));
        for (size_t done = 0; done < form.size();) {
            const ssize_t count = write(fd_.get(), form.data() + done, form.size() - done);
            require(count > 0, "form");
            done += static_cast<size_t>(count);
        }
        require(access(kFolder, W_OK) == 0 || mkdir(kFolder, 0700) == 0, kFolder);
        require(dup2(fd_.get(), STDIN_FILENO) == STDIN_FILENO, "standard input");
        setenv("CONTENT_LENGTH", std::to_string(form.size()).c_str(), 1);
        setenv("CONTENT_TYPE", ("multipart/form-data; boundary=" + kBoundary).c_str(), 1);
    }
    Form(const Form &) = delete;
    Form &operator=(const Form &) = delete;
    ~Form() { rmdir(kFolder); }
    static void rewind() { require(lseek(STDIN_FILENO, 0, SEEK_SET) == 0, "rewind"); }

  private:
    UniqueFd fd_;
};

void copy_loop(benchmark::State &state, Kind kind)
{
    const Form form(kind);
    const std::string path = std::string(kFolder) + "/copy";
    static char buffer[65536];
    for (auto _ : state) {
        Form::rewind();
        const UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        ssize_t count;
        while ((count = read(STDIN_FILENO, buffer, sizeof(buffer))) > 0)
            require(write(file.get(), buffer, static_cast<size_t>(count)) == count, "write");
        require(fsync(file.get()) == 0, "fsync");
        state.PauseTiming();
        unlink(path.c_str());
        state.ResumeTiming();
    }
}

void upload(benchmark::State &state, Kind kind)
{
    const Form form(kind);
    for (auto _ : state) {
        Form::rewind();
        UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes)), files(NLIBCSzHashAlloc(kCgiParamBytes));
        require(NorvUploadParse(params.address(), files.address(), kFolder) == kUploadGood, "upload");
        state.PauseTiming();
        unlink(NLIBCSzHashGetValue(files.get(), "filename_tmp"));
        state.ResumeTiming();
    }
}

#define BOTH(name, kind)                                                                                               \
    BENCHMARK_CAPTURE(copy_loop, name, kind)->Unit(benchmark::kMillisecond);                                           \
    BENCHMARK_CAPTURE(upload, name, kind)->Unit(benchmark::kMillisecond);
BOTH(random, kRandom)
BOTH(text, kText)
BOTH(zeros, kZeros)
BOTH(newlines, kNewlines)
BOTH(near_boundaries, kNearBoundaries)

} // namespace
