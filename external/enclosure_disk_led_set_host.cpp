#include <cstdio>

#include "autocleanup/glob_matches.h"
#include "external/enclosure_lamp.h"
#include "lib/report.h"

int enclosure_disk_led_set_host(int is_on)
{
    size_t lamps = 0;
    bool is_set = true;
    for (const char *name : kLampNames) {
        char pattern[64];
        snprintf(pattern, sizeof(pattern), "/sys/class/enclosure/*/*/%s", name);
        GlobMatches matches;
        is_set = glob(pattern, 0, nullptr, &matches.found) != GLOB_NOSPACE && is_set;
        lamps += matches.found.gl_pathc;
        for (size_t i = 0; i < matches.found.gl_pathc; i++)
            is_set = enclosure_lamp_write(matches.found.gl_pathv[i], is_on != 0) == 0 && is_set;
    }
    if (lamps == 0)
        return fail(kErrNoDevice);
    return is_set ? 0 : fail(kErrWrite);
}
