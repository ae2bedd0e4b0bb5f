#include "external/enclosure.h"

#include <cstdio>

#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "lib/report.h"

// One file for each lamp of each slot, as the kernel's enclosure class shows them.
static constexpr const char *kLampPatterns[] = {"/sys/class/enclosure/*/*/fault", "/sys/class/enclosure/*/*/locate"};

static bool lamp_set(const char *path, int is_on)
{
    UniqueFile file(fopen(path, "we"));
    const bool is_written = file && fprintf(file.get(), "%d\n", is_on) > 0;
    return file && fclose(file.release()) == 0 && is_written;
}

int enclosure_disk_led_set_host(int is_on)
{
    size_t lamps = 0;
    bool is_set = true;
    for (const char *pattern : kLampPatterns) {
        GlobMatches matches;
        if (glob(pattern, 0, nullptr, &matches.found) != 0)
            continue;
        lamps += matches.found.gl_pathc;
        for (size_t i = 0; i < matches.found.gl_pathc; i++)
            is_set = lamp_set(matches.found.gl_pathv[i], is_on) && is_set;
    }
    if (lamps == 0)
        return fail(kErrNoDevice);
    return is_set ? 0 : static_cast<int>(fail(kErrWrite));
}
