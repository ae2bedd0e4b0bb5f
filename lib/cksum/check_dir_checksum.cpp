#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/cksum/checksum_line.h"
#include "lib/cksum/cksum.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr char kToolOutputPath[] = "/tmp/cksum.tmp";

// Whether a path lies in a folder; both are resolved.
static bool path_is_inside(std::string_view path, std::string_view folder)
{
    if (folder == "/")
        return true;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

static int path_check(const char *dir, const char *path)
{
    const UniqueText folder(realpath(dir, nullptr)), resolved(folder ? realpath(path, nullptr) : nullptr);
    if (!resolved) {
        fail(kErrSystemCall);
        NORV_LOG(LOG_ERR, "Failed to get realpath[0x%04X %s:%d]", NORV_ERR_ARGS);
        return kChecksumBad;
    }
    if (!path_is_inside(resolved.get(), folder.get())) {
        NORV_LOG(LOG_ERR, "Realpath is not compatible with input path");
        return kChecksumBad;
    }
    return kChecksumGood;
}

// Puts what the tool says of a file into the temporary file, which never is one that stood there before.
static int tool_output_write(const char *path)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return kChecksumStat;
    unlink(kToolOutputPath);
    const UniqueFd output(open(kToolOutputPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!output)
        return kChecksumTool;
    const bool is_special = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode) || S_ISFIFO(status.st_mode);
    if (is_special || S_ISLNK(status.st_mode)) {
        const long size = is_special ? 0 : static_cast<long>(status.st_size);
        return dprintf(output.get(), "0 %ld\n", size) > 0 ? kChecksumGood : kChecksumWrite;
    }
    char tool[] = "/usr/bin/cksum", option[] = "-o", algorithm[] = "3";
    char *arguments[] = {tool, option, algorithm, const_cast<char *>(path), nullptr};
    return exec_into(output.get(), tool, arguments) == 0 ? kChecksumGood : kChecksumTool;
}

// Compares the first two words of the temporary file.
static int tool_output_compare(const ChecksumLine &line)
{
    const UniqueFile file(fopen(kToolOutputPath, "re"));
    if (!file)
        return kChecksumOpen;
    char said[256];
    if (fgets(said, sizeof(said), file.get()) == nullptr)
        return kChecksumBad;
    std::string_view words = said;
    return word_next(&words) == line.crc && word_next(&words) == line.size ? kChecksumGood : kChecksumBad;
}

static int file_check(const char *dir, const ChecksumLine &line, ChecksumTotals *totals)
{
    char path[PATH_MAX];
    if (static_cast<size_t>(snprintf(path, sizeof(path), "%s/%s", dir, line.path)) >= sizeof(path))
        return kChecksumBad;
    int result = path_check(dir, path);
    if (result == kChecksumGood)
        result = tool_output_write(path);
    if (result != kChecksumGood)
        return result;
    ChecksumSpot spot;
    if (__builtin_add_overflow(totals->offsets, line.offset, &totals->offsets))
        return kChecksumBad;
    result = checksum_spot(path, line.offset, &spot);
    if (result != kChecksumGood)
        return result;
    if (spot.value != line.spot || spot.size != line.size_bytes ||
        __builtin_add_overflow(totals->spots, spot.value, &totals->spots))
        return kChecksumBad;
    result = tool_output_compare(line);
    totals->sizes += spot.size;
    return result;
}

static int list_check(FILE *list, const char *dir, bool strict)
{
    ChecksumTotals totals = {};
    char text[kChecksumLineBytes + 2]; // its newline and a NUL
    while (fgets(text, sizeof(text), list) != nullptr) {
        const bool is_whole = strchr(text, '\n') != nullptr;
        if (text[0] == '#')
            return totals.lines > 0 && checksum_trailer_matches(text, totals) ? kChecksumGood : kChecksumBad;
        ChecksumLine line;
        if ((!is_whole && !feof(list)) || !checksum_line_parse(text, &line))
            return kChecksumBad;
        const int result = file_check(dir, line, &totals);
        if (result != kChecksumGood)
            return result;
        totals.lines++;
        if (!is_whole)
            return strict ? kChecksumBad : kChecksumGood;
    }
    return strict || totals.lines == 0 ? kChecksumBad : kChecksumGood;
}

int CheckDirChecksum(const char *dir, int strict)
{
    if (dir == nullptr)
        return kChecksumNoFolder;
    char path[PATH_MAX];
    if (static_cast<size_t>(snprintf(path, sizeof(path), "%s/%s", dir, kChecksumListName)) >= sizeof(path))
        return kChecksumOpen;
    const UniqueFile list(fopen(path, "re"));
    if (!list)
        return kChecksumOpen;
    const int result = list_check(list.get(), dir, strict != 0);
    unlink(kToolOutputPath);
    return result;
}
