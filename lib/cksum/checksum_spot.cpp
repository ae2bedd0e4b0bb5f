#include <cstdint>
#include <cstdio>
#include <sys/random.h>
#include <sys/stat.h>

#include "autocleanup/unique.h"
#include "lib/cksum/cksum.h"

static constexpr long long kSpotBytes = 4;
static constexpr long long kBlockDeviceValue = 0x9f8, kCharacterDeviceValue = 0x716, kPipeValue = 0x720;
static constexpr long long kEmptyFileValue = 0xacf;

static long long random_below(long long limit)
{
    uint64_t bits = 0;
    if (getrandom(&bits, sizeof(bits), 0) != sizeof(bits) || limit <= 0)
        return 0;
    return static_cast<long long>(bits % static_cast<uint64_t>(limit));
}

// Where the spot's four bytes begin, so that they end before the file does.
static long long spot_begin(long long position, long long size)
{
    const auto is_inside = [size](long long begin) { return begin >= 0 && begin + kSpotBytes <= size; };
    if (is_inside(position))
        return position;
    if (is_inside(position - kSpotBytes))
        return position - kSpotBytes;
    return size >= kSpotBytes ? size - kSpotBytes : 0;
}

static int spot_read(const char *path, long long position, ChecksumSpot *out)
{
    const UniqueFile file(fopen(path, "re"));
    if (!file)
        return kChecksumOpen;
    if (fseeko(file.get(), spot_begin(position, out->size), SEEK_SET) != 0)
        return kChecksumSeek;
    unsigned char bytes[kSpotBytes];
    const auto wanted = static_cast<size_t>(out->size < kSpotBytes ? out->size : kSpotBytes);
    if (fread(bytes, 1, wanted, file.get()) != wanted)
        return kChecksumRead;
    out->value = 0;
    for (size_t i = 0; i < wanted; i++)
        out->value += bytes[i];
    return kChecksumGood;
}

int checksum_spot(const char *path, long long offset, ChecksumSpot *out)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return kChecksumStat;
    *out = {0, 0};
    switch (status.st_mode & S_IFMT) {
    case S_IFBLK:
        out->value = kBlockDeviceValue;
        return kChecksumGood;
    case S_IFCHR:
        out->value = kCharacterDeviceValue;
        return kChecksumGood;
    case S_IFIFO:
        out->value = kPipeValue;
        return kChecksumGood;
    default:
        break;
    }
    if (status.st_size == 0) {
        out->value = kEmptyFileValue;
        return kChecksumGood;
    }
    out->size = status.st_size;
    const long long position = offset < 0 ? random_below(out->size) : offset - out->size;
    if (position < 0)
        return kChecksumPosition;
    if (S_ISLNK(status.st_mode)) {
        out->value = position;
        return kChecksumGood;
    }
    return spot_read(path, position, out);
}
