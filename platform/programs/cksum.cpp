// Check sum and size of files, as POSIX has it or, with "-o 3", by the CRC of Ethernet and zip over the bytes alone.
//   usage: cksum [-o 3] [FILE ...]
// Prints "<sum> <bytes> <file>", or without a file "<sum> <bytes>" of standard input. Exit status 1 when a file could
// not be read; the others are done all the same.
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include "autocleanup/unique.h"

namespace
{

constexpr std::array<uint32_t, 256> posix_table()
{
    std::array<uint32_t, 256> table = {};
    for (uint32_t byte = 0; byte < 256; byte++) {
        uint32_t value = byte << 24;
        for (int bit = 0; bit < 8; bit++)
            value = value << 1 ^ ((value >> 31) != 0 ? 0x04c11db7U : 0);
        table[byte] = value;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kPosixTable = posix_table();

uint32_t posix_add(uint32_t sum, const uint8_t *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++)
        sum = sum << 8 ^ kPosixTable[sum >> 24 ^ bytes[i]];
    return sum;
}
uint32_t posix_finish(uint32_t sum, uint64_t size)
{
    for (; size != 0; size >>= 8) { // the size counts too, its lowest byte first
        const auto byte = static_cast<uint8_t>(size);
        sum = posix_add(sum, &byte, 1);
    }
    return ~sum;
}

uint32_t zip_add(uint32_t sum, const uint8_t *bytes, size_t count)
{
    return static_cast<uint32_t>(crc32(sum, bytes, static_cast<uInt>(count)));
}
uint32_t zip_finish(uint32_t sum, uint64_t size)
{
    static_cast<void>(size);
    return sum;
}

struct Algorithm {
    uint32_t (*add)(uint32_t sum, const uint8_t *bytes, size_t count);
    uint32_t (*finish)(uint32_t sum, uint64_t size);
};
constexpr Algorithm kPosix = {posix_add, posix_finish};
constexpr Algorithm kZip = {zip_add, zip_finish};

bool print(const Algorithm &algorithm, int fd, const char *name)
{
    static uint8_t buffer[128 * 1024];
    uint32_t sum = 0;
    uint64_t size = 0;
    for (ssize_t count; (count = read(fd, buffer, sizeof(buffer))) != 0;) {
        if (count < 0)
            return false;
        sum = algorithm.add(sum, buffer, static_cast<size_t>(count));
        size += static_cast<uint64_t>(count);
    }
    printf("%" PRIu32 " %" PRIu64 "%s%s\n", algorithm.finish(sum, size), size, *name == '\0' ? "" : " ", name);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    const Algorithm *algorithm = &kPosix;
    for (int letter; (letter = getopt(argc, argv, "o:")) != -1;) {
        if (letter != 'o' || strcmp(optarg, "3") != 0) {
            fputs("usage: cksum [-o 3] [FILE ...]\n", stderr);
            return 1;
        }
        algorithm = &kZip;
    }
    int status = 0;
    if (optind == argc && !print(*algorithm, STDIN_FILENO, "")) {
        perror("cksum: standard input");
        status = 1;
    }
    for (int index = optind; index < argc; index++) {
        const UniqueFd fd(open(argv[index], O_RDONLY | O_CLOEXEC));
        if (!fd || !print(*algorithm, fd.get(), argv[index])) {
            fprintf(stderr, "cksum: %s: %s\n", argv[index], strerror(errno));
            status = 1;
        }
    }
    return status;
}
