#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "applets/manutild.h"
#include "external/hw_control.h"
#include "lib/report.h"

static constexpr int kTries = 5;

bool man_disk_is_visible()
{
    static constexpr const char *kDisks[] = {"/proc/ide/hda", "/sys/block/sda", "/sys/block/sdb", "/sys/block/sdc",
                                             "/sys/block/sdd"};
    for (const char *disk : kDisks)
        if (access(disk, F_OK) == 0)
            return true;
    return false;
}

// Runs the first command until it succeeds, then the second once. Returns 0; -1.
static int commands_run(const char *first, const char *second)
{
    for (int i = 0; i < kTries; i++) {
        usleep(static_cast<useconds_t>(rand() % 1000000)); // so that the units of a line do not act as one
        if (system(first) != 0)
            continue;
        if (system(second) == 0)
            return 0;
        syslog(LOG_ERR, "manutil.c update cmd2 error");
        return -1;
    }
    syslog(LOG_ERR, "manutil.c update cmd1 error");
    return -1;
}

// Runs the two commands, which stand on both sides of a comma. Returns 0; -1.
static int group_action_run(char *message)
{
    static char empty[] = ",";
    char *first = message != nullptr ? message : empty;
    char *second = strchr(first, ',');
    if (second == nullptr)
        return -1;
    *second++ = '\0';
    NORV_LOG_CALL(LOG_ERR, "(%s) szCommand1=[%s]", "ErrMANIDoGroupAction", first);
    NORV_LOG_CALL(LOG_ERR, "(%s) szCommand2=[%s]", "ErrMANIDoGroupAction", second);
    return commands_run(first, second);
}

int ErrMANIDoGroupAction(UDPD_HANDLE *handle, char *message, int /*length*/)
{
    static bool has_run;
    if (has_run || man_disk_is_visible())
        return man_reply(handle, kManGroupAction, kManDone);
    if (man_burnin_stop() == 0) {
        has_run = true;
        if (group_action_run(message) == 0) {
            man_shell("/bin/touch /tmp/noledproc");
            sleep(5);
            man_control(kHwStatusGreen);
            return man_reply(handle, kManGroupAction, kManDone);
        }
    }
    man_control(kHwStatusOrange);
    return man_reply(handle, kManGroupAction, kManFailed);
}
