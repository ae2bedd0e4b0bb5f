// From the fuzzer's interface to that of the entries here.
#include "tests/fuzz/fuzz.h"

#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/)
{
    if (fuzz_begin != nullptr)
        fuzz_begin();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<char> exact(data, data + size);
    fuzz_one(exact.empty() ? "" : std::string_view(exact.data(), exact.size()));
    return 0;
}

// In front of the C library's: no target waits.
extern "C" unsigned sleep(unsigned /*seconds*/)
{
    return 0;
}
extern "C" int usleep(useconds_t /*microseconds*/)
{
    return 0;
}
