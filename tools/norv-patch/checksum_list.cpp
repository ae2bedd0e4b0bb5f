#include "tools/norv-patch/checksum_list.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <vector>
#include <zlib.h>

#include "autocleanup/unique.h"
#include "lib/cksum/checksum_line.h"
#include "lib/cksum/cksum.h"
#include "platform/codesign/tree_signature.h"

static constexpr size_t kReadBytes = 128 * 1024;

static bool complain(const char *what, const std::string &path)
{
    fprintf(stderr, "norv-patch: cannot %s %s: %s\n", what, path.c_str(), strerror(errno));
    return false;
}

// The checksum that cksum -o 3 prints.
static bool crc_read(const std::string &path, unsigned long *out)
{
    const UniqueFile file(fopen(path.c_str(), "re"));
    if (!file)
        return false;
    std::vector<unsigned char> buffer(kReadBytes);
    *out = crc32(0, nullptr, 0);
    while (const size_t got = fread(buffer.data(), 1, buffer.size(), file.get()))
        *out = crc32(*out, buffer.data(), static_cast<uInt>(got));
    return ferror(file.get()) == 0;
}

// A place in the file that its path alone decides, so that the same folder makes the same list.
static long long spot_position(const std::string &name, long long size)
{
    const unsigned long hash =
        crc32(0, reinterpret_cast<const unsigned char *>(name.data()), static_cast<uInt>(name.size()));
    return size > 0 ? static_cast<long long>(hash) % size : 0;
}

struct ListTotals {
    long long sizes, offsets, spots;
};

static bool line_write(FILE *list, const std::string &folder, const codesign::Member &member, bool is_wrong,
                       ListTotals *totals)
{
    const std::string path = folder + "/" + member.path;
    struct stat status;
    unsigned long crc = 0;
    if (member.path.find_first_of(" \t") != std::string::npos) {
        fprintf(stderr, "norv-patch: a blank in the name of %s\n", path.c_str());
        return false;
    }
    if (lstat(path.c_str(), &status) != 0 || (S_ISREG(status.st_mode) && !crc_read(path, &crc)))
        return complain("read", path);
    const long long offset = status.st_size + spot_position(member.path, status.st_size);
    ChecksumSpot spot;
    if (checksum_spot(path.c_str(), offset, &spot) != kChecksumGood)
        return complain("read", path);
    fprintf(list, "%lu %lld %s %lld %lld\n", is_wrong ? crc + 1 : crc, spot.size, member.path.c_str(), offset,
            spot.value);
    totals->sizes += spot.size;
    totals->offsets += offset;
    totals->spots += spot.value;
    return true;
}

bool checksum_list_write(const std::string &folder, ListFault fault)
{
    std::vector<codesign::Member> members;
    std::string in_the_way;
    if (!codesign::tree_list(folder, kChecksumListName, &members, &in_the_way)) {
        fprintf(stderr, "norv-patch: cannot take %s into a patch\n", in_the_way.c_str());
        return false;
    }
    const std::string path = folder + "/" + kChecksumListName;
    const UniqueFile list(fopen(path.c_str(), "we"));
    if (!list)
        return complain("write", path);
    ListTotals totals = {0, 0, 0};
    bool is_wrong = fault == ListFault::kChecksum; // the first file's
    for (const codesign::Member &member : members) {
        if (member.kind == codesign::MemberKind::kFolder || member.path == codesign::kTreeSignatureName)
            continue;
        if (!line_write(list.get(), folder, member, is_wrong, &totals))
            return false;
        is_wrong = false;
    }
    if (fault == ListFault::kMissingFile)
        fprintf(list.get(), "1 1 not.there 1 1\n");
    if (fault == ListFault::kTotals)
        totals.sizes++;
    if (fault != ListFault::kNoTotals)
        fprintf(list.get(), "# Norvcksum %lld %lld %lld\n", totals.sizes, totals.offsets, totals.spots);
    return (fflush(list.get()) == 0 && ferror(list.get()) == 0) || complain("write", path);
}

static const char *line_verify(const std::string &folder, const ChecksumLine &line, ChecksumTotals *totals)
{
    const std::string path = folder + "/" + line.path;
    struct stat status;
    ChecksumSpot spot;
    unsigned long crc = 0;
    if (!codesign::path_is_clean(line.path) || lstat(path.c_str(), &status) != 0 ||
        (S_ISREG(status.st_mode) && !crc_read(path, &crc)))
        return "checksum.norv: a file is missing";
    if (std::to_string(crc) != line.crc)
        return "checksum.norv: a checksum differs";
    if (checksum_spot(path.c_str(), line.offset, &spot) != kChecksumGood || spot.value != line.spot ||
        spot.size != line.size_bytes)
        return "checksum.norv: a size or spot differs";
    totals->lines++;
    totals->sizes += spot.size;
    totals->offsets += line.offset;
    totals->spots += spot.value;
    return nullptr;
}

const char *checksum_list_verify(const std::string &folder)
{
    const UniqueFile list(fopen((folder + "/" + kChecksumListName).c_str(), "re"));
    if (!list)
        return "checksum.norv: there is none";
    char text[kChecksumLineBytes + 2];
    ChecksumTotals totals = {};
    while (fgets(text, sizeof(text), list.get()) != nullptr) {
        if (text[0] == '#')
            return totals.lines > 0 && checksum_trailer_matches(text, totals) ? nullptr
                                                                              : "checksum.norv: the totals differ";
        ChecksumLine line;
        const char *fault = checksum_line_parse(text, &line) ? line_verify(folder, line, &totals)
                                                             : "checksum.norv: a line is malformed";
        if (fault != nullptr)
            return fault;
    }
    return "checksum.norv: the totals are missing";
}
