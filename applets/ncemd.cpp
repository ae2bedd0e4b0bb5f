#include "applets/ncemd.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "applets/applets.h"
#include "applets/banner.h"
#include "applets/command.h"
#include "external/board_device.h"
#include "external/enclosure.h"
#include "external/hw_control.h"
#include "external/nic.h"
#include "external/oob.h"
#include "lib/conf.h"
#include "lib/globals.h"
#include "lib/report.h"
#include "net/net.h"
#include "net/net_wol.h"
#include "net/norvjnet.h"
#include "panel/lcm.h"

static constexpr int kEventSource = 2;

int gblMuteBuzzer = 0;

namespace
{

bool is_on_extension_card(const char *interface_name)
{
    char pci_name[32];
    return external_hw_find_NIC_PCI_name(interface_name, pci_name, sizeof(pci_name)) == 0 &&
           external_hw_is_device_on_PCI_extension_port(pci_name) == 1;
}

// A port that is down wakes the machine, too.
void wol_disable()
{
    NET_STAT interfaces[kNetInterfacesMax];
    const int count = NetStatGetAll(interfaces, kNetInterfacesMax);
    if (count <= 0) {
        NORV_LOG(LOG_ERR, "Failed to get internal interface");
        return;
    }
    for (int i = 0; i < count; i++) {
        const char *name = interfaces[i].szName;
        if (!is_on_extension_card(name) && net_wol_get(name) == 1 && net_wol_enable(name, 0) != 0)
            NORV_LOG(LOG_ERR, "failed to disable WOL. Interface [%s]", name);
    }
}

// Tells the driver that the daemon runs.
void driver_tell()
{
    const UniqueFd device = board_open();
    if (!device)
        NORV_LOG(LOG_ERR, "Open norvbios error");
    else if (ioctl(device.get(), NORVIO_DAEMON_START, 1) < 0)
        NORV_LOG(LOG_ERR, "ioctl failed");
}

void board_start()
{
    gblHwFd = board_open().release();
    if (gblHwFd < 0)
        syslog(LOG_ERR, "NCEMD: Norvbios fail\n");
    ncemd_disk_led_pass();
    ncemd_control(kHwBeepLong);
    if (ncemd_control(kHwPowerLedOn) == -1)
        syslog(LOG_ERR, "NCEMD: Fail to put the SysRun light up.");
    if (NLIBCConfIsYes("support_wol"))
        wol_disable();
    driver_tell();
    if (!conf_support_led_behavior_v2())
        ncemd_control(kHwStatusOrangeBlinking);
}

// Goes to the background. Returns 0; -1 when the daemon must not run.
int detach()
{
    if (ncemd_sigterm_init() != 0) {
        NORV_LOG(LOG_ERR, "Failed to Init SIGTERM.");
        return -1;
    }
    if (daemon(0, 0) != 0) {
        syslog(LOG_ERR, "NCEMD: ncemd daemon init error!");
        return -1;
    }
    ncemd_sigchld_init();
    NORVHWSetEventSource(kEventSource);
    return 0;
}

void event_serve(int event)
{
    switch (event) {
    case kHwEventButtonModeEnter:
        ncemd_button_mode();
        break;
    case kHwEventPowerOff:
        syslog(LOG_ERR, "NCEMD: Shutdown the system.");
        if (ncemd_power_action_start(0) != 0)
            syslog(LOG_ERR, "NCEMD: Error during shutdown");
        break;
    case kHwEventMute:
        gblMuteBuzzer = 1;
        break;
    case kHwEventPortThaw:
        ncemd_port_thaw_scan();
        break;
    default:
        break;
    }
}

// Sounds the buzzer while one of the status pair is bad, until that is acknowledged.
void alarm_check()
{
    if ((buzzer_mask_get() & kBuzzerMaskAlarm) == 0)
        return;
    int32_t pair[2] = {}; // 1: good
    if (board_request(NORVIO_GET_ALARM_STATUS, pair) < 0)
        return;
    if (pair[0] == 1 && pair[1] == 1)
        gblMuteBuzzer = 0;
    else if ((pair[0] == 0 || pair[1] == 0) && gblMuteBuzzer == 0)
        ncemd_control(kHwBeepLong);
}

void out_of_band_check()
{
    uint8_t request = 0;
    if (oob_request_get(&request) != 0 || (request & (kOobPowerOff | kOobReboot)) == 0)
        return;
    if ((request & kOobPowerOff) != 0) {
        NORV_LOG(LOG_ERR, "NCEMD: Shutdown the system.");
        if (ncemd_power_action_start(0) != 0)
            NORV_LOG(LOG_ERR, "NCEMD: Error during shutdown");
    } else {
        NORV_LOG(LOG_ERR, "NCEMD: Reboot the system.");
        if (ncemd_power_action_start(1) != 0)
            NORV_LOG(LOG_ERR, "NCEMD: Error during reboot");
    }
    static_cast<void>(oob_request_clear());
}

void loop(bool support_acm)
{
    for (;;) {
        int event = 0;
        if (ncemd_event_wait(&event) == 0)
            event_serve(event);
        ncemd_disk_led_pass();
        alarm_check();
        ncemd_netlink_pass();
        ncemd_button_check();
        if (support_acm)
            lcm_pass();
        const bool is_stopping = gblNcemdStop != 0; // read first: what ends the loop is then told, too
        ncemd_signals_report();
        if (is_stopping)
            return;
        if (conf_support_oob_ctl())
            out_of_band_check();
    }
}

void stop()
{
    if (gblHwFd >= 0)
        close(gblHwFd);
    if (gblNetlinkFd >= 0)
        close(gblNetlinkFd);
    gblHwFd = gblNetlinkFd = -1;
    lcm_close();
    ncemd_disks_free();
    if (gblInternalDiskWithoutLedMask != 0 && conf_supportsas() && enclosure_disk_led_set_host(0) != 0)
        syslog(LOG_ERR, "NCEMD : NORVEnclosureDiskLedSetHost failed");
}

} // namespace

int ncemd_event_wait(int *event)
{
    static constexpr int kRoundSeconds = 2;
    const int result = NORVHWGetEvent(event, kRoundSeconds);
    if (result < 0)
        sleep(kRoundSeconds);
    return result;
}

int ncemd_main(int argc, char *argv[], bool support_acm)
{
    if (help_is_asked(argc, argv)) {
        banner_print();
        return 0;
    }
    NORV_LOG_CALL(LOG_ERR, "(%s) start ncemd", "main");
    sleep(5);
    NORVJNetRoutetableClean();
    ncemd_netlink_open();
    ncemd_disks_init();
    board_start();
    if (detach() != 0)
        return 1;
    loop(support_acm);
    stop();
    return 0;
}
