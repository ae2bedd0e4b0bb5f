#include <cstdio>
#include <cstring>
#include <glob.h>
#include <unistd.h>

#include "applets/manutild.h"
#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "external/hw_control.h"
#include "lib/report.h"

static constexpr const char *kPrograms[] = {"burnin_test", "memtester"};
static constexpr int kFurtherTries = 10; // of all programs together

// Whether a process of this name runs; one that is dead and not waited for does not. See proc(5), /proc/[pid]/stat.
static bool program_runs(const char *name)
{
    GlobMatches processes;
    if (glob("/proc/[0-9]*/stat", GLOB_NOSORT, nullptr, &processes.found) != 0)
        return false;
    for (size_t i = 0; i < processes.found.gl_pathc; i++) {
        const UniqueFile file(fopen(processes.found.gl_pathv[i], "re"));
        char process[16], state;
        if (file && fscanf(file.get(), "%*d (%15[^)]) %c", process, &state) == 2 && strcmp(process, name) == 0 &&
            state != 'Z' && state != 'X')
            return true;
    }
    return false;
}

static void program_kill(const char *name)
{
    man_control(kHwStatusOrangeBlinking);
    sleep(1);
    char command[64];
    snprintf(command, sizeof(command), "killall -9 %s", name);
    syslog(LOG_ERR, "%s", command);
    man_shell(command);
}

int man_burnin_stop()
{
    int tries = kFurtherTries;
    for (const char *name : kPrograms) {
        program_kill(name);
        while (program_runs(name)) {
            if (tries-- == 0)
                return fail(kErrChild);
            program_kill(name);
        }
    }
    man_shell("rm -f /tmp/*");
    man_control(kHwStatusOrangeBlinking);
    return 0;
}
