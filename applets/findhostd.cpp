#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

#include "applets/applets.h"
#include "applets/banner.h"
#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "install/system_status.h"
#include "lib/file_replace.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr int kVersionMajor = 258, kVersionMinor = 0;
static constexpr char kRuler[] = "******************************************************";
static_assert(sizeof(kRuler) - 1 == 54);

namespace
{

// False for an option that there is none.
bool options_read(int argc, char *argv[])
{
    for (int option = getopt(argc, argv, "Ccd"); option != -1; option = getopt(argc, argv, "Ccd"))
        switch (option) {
        case 'c':
            gblAcceptPlain = 1;
            break;
        case 'C':
            gblAcceptPlain = 0;
            break;
        case 'd':
            gblDebug = 1;
            puts("debug on");
            break;
        default:
            return false;
        }
    return true;
}

void pid_write()
{
    if (file_replace(kFhostPidPath, "%d", getpid()) != 0)
        NORV_LOG(LOG_ERR, "Failed to write %s: %m", kFhostPidPath);
}

// A machine under a memory test tells of itself.
void notifier_start()
{
    if (access("/.memtest", F_OK) != 0)
        return;
    gblMemTest = 1;
    const pid_t pid = NLIBCFork(0);
    if (pid == 0)
        fhost_notify();
    if (pid < 0) {
        NORV_LOG(LOG_ERR, "Failed to fork notify");
        _exit(1);
    }
}

} // namespace

int findhostd_main(int argc, char *argv[])
{
    if (help_is_asked(argc, argv)) {
        banner_print();
        return -1; // unlike the other daemons
    }
    setlinebuf(stdout);
    if (!options_read(argc, argv)) {
        fprintf(stderr, "Findhostd Ver. %d.%d\n", kVersionMajor, kVersionMinor);
        fputs("Options: -c accept plain packets, -C sealed ones only, -d debug\n", stderr);
        return 0;
    }
    if (gblDebug == 0 && daemon(0, 0) != 0) {
        printf("%s:%d exit with %d\n", __FILE_NAME__, __LINE__, 1);
        return 1;
    }
    fhost_signals_catch();
    pid_write();
    printf("%s\nrun udp serv\n%s\n", kRuler, kRuler);
    setpriority(PRIO_PROCESS, 0, -10); // better, not needed
    DetectSysStatus();
    tvLastNetSet = 0;
    FHOSTProcessKeyInit(); // without a pair only plain packets are read
    notifier_start();
    printf("QCF status = %d\n", FHOSTGetStatus());
    FHOSTServerRun();
    FHOSTProcessKeyFree();
    printf("%s\nend udp serv\n%s\n", kRuler, kRuler);
    return 0;
}
