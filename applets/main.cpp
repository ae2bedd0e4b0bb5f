#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>

#include "applets/applets.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/globals.h"
#include "lib/proc.h"
#include "lib/report.h"

namespace
{

struct Applet {
    const char *name;
    int (*run)(int argc, char *argv[]);
};

// The first match wins; a name that is not here is the event daemon. The build makes the installed names from these
// rows.
constexpr Applet kApplets[] = {
    {"manutild", manutild_main},
    {"findhostd", findhostd_main},
    {"raidtool", raidtool_main},
    {"norvcfgen", norvcfgen_main},
    {"norvhdcfgen", norvhdcfgen_main},
    {"norvcheckpartition", norvcheckpartition_main},
    {"norvcleanpartition", norvcleanpartition_main},
    {"norvgetmaxpartition", norvgetmaxpartition_main},
    {"norvchecksum", norvchecksum_main},
    {"norvhwctrl", norvhwctrl_main},
    {"mantool", mantool_main},
    {"norv_microp_control", norv_microp_control_main},
    {"norvdiskport", norvdiskport_main},
    {"norvdiskupdatehclport", norvdiskupdatehclport_main},
    {"norvupgrade", norvupgrade_main},
    {"install.cgi", install_cgi_main},
    {"lock_check.cgi", lock_check_cgi_main},
    {"recover.cgi", recover_cgi_main},
    {"start_telnet.cgi", start_telnet_cgi_main},
    {"clean_button_flags.cgi", clean_button_flags_cgi_main},
    {"session.cgi", session_cgi_main},
    {"norvcodesign", norvcodesign_main},
    {"norvnetseqadj", norvnetseqadj_main},
    {"norvssdcache", norvssdcache_main},
    {"norvlanstatus", norvlanstatus_main},
    {"norv_pstore_collect", norv_pstore_collect_main},
    {"norv_swap_ctl", norv_swap_ctl_main},
    {"norv_extract_system_patch", norv_extract_system_patch_main},
    {"norv_oob_power_action", norv_oob_power_action_main},
    {"norv_oob_ipv4_get", norv_oob_ipv4_get_main},
    {"norvstgcore", norvstgcore_main},
    {"norv_led_mask_on", norv_led_mask_on_main},
};

constexpr bool names_are_unique()
{
    for (const Applet &left : kApplets)
        for (const Applet &right : kApplets)
            if (&left != &right && std::string_view(left.name) == right.name)
                return false;
    return true;
}
static_assert(names_are_unique());

// A standard stream that is closed at start leaves its number to the next file that is opened, and the role's output
// would land there: in the log, the board device, or a disk.
void standard_streams_fill()
{
    for (int fd = 0; fd <= 2; fd++)
        if (fcntl(fd, F_GETFD) == -1)
            static_cast<void>(open("/dev/null", O_RDWR)); // the lowest free number, which is this one
}

int support_raid_read()
{
    char value[32];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "supportraid", value, sizeof(value), 0) <= 0) {
        NORV_LOG_CALL(LOG_ERR, "(%s) Failed to get key %s from %s", "main", "supportraid", kDefaultsPath);
        return 0;
    }
    return strcmp(value, "yes") == 0 ? 1 : 0;
}

} // namespace

int main(int argc, char *argv[])
{
    standard_streams_fill();
    signal(SIGCHLD, SIG_DFL); // a starter may have it ignored, and then no program's exit status would reach us
    for (const int number : {SIGPIPE, SIGXFSZ}) // a write that must fail says so, and what was begun is undone
        signal_outlive(number);
    const char *name = argc > 0 && argv[0] != nullptr ? base_name(argv[0]) : "";
    gblNcemdStop = 0;
    const bool support_acm = NLIBCConfIsYes("support_acm");
    gblInternalDiskWithoutLedMask = NLIBCFileCheckKeyValue(kDefaultsPath, "internal_disk_without_led_mask", "yes", 0);
    gblSupportRaid = support_raid_read();
    for (const Applet &applet : kApplets)
        if (strcmp(applet.name, name) == 0)
            return applet.run(argc, argv);
    return ncemd_main(argc, argv, support_acm);
}
