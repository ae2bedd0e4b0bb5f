// Update feeds, read by a machine of version 7.1, build 200.
// Covers: install/feed_parse.cpp
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include "install/feed.h"
#include "tests/fuzz/fuzz.h"

// The path of a VERSION file without a place.
static const char *version_path()
{
    static constexpr char kText[] = "majorversion=7\nminorversion=1\nbuildphase=hotfix\nbuildnumber=200\n"
                                    "builddate=2020/1/1\n";
    static char path[32];
    if (path[0] == '\0') {
        setlogmask(LOG_MASK(LOG_EMERG));
        const int fd = memfd_create("VERSION", MFD_CLOEXEC);
        check(write(fd, kText, strlen(kText)) == static_cast<ssize_t>(strlen(kText)), "no version");
        snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    }
    return path;
}

void fuzz_one(std::string_view input)
{
    NewVersion found;
    const int result = feed_parse(input, "ours", version_path(), &found);
    const bool has_link = found.link[0] != '\0', has_sum = found.checksum[0] != '\0';
    check(has_link == has_sum && has_link == (found.version[0] != '\0'), "half a result");
    check(result == 0 || !has_link, "a result of a refused feed");
    check(result != 0 || input.find(">ours") != std::string_view::npos, "a patch for no model");
    check(strnlen(found.link, 1024) < 1024 && strnlen(found.checksum, 256) < 256, "a value too long");
    check(!has_link || input.find(found.link) != std::string_view::npos, "a link of its own");
}
