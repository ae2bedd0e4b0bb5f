#include "panel/lcm.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/ipc.h>
#include <termios.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/board_device.h"
#include "external/hw_control.h"
#include "lib/list.h"
#include "lib/report.h"
#include "net/net.h"

static constexpr char kMemtestPath[] = "/.memtest";
static constexpr char kSerialPath[] = "/proc/sys/kernel/norv_serial";
static constexpr int kOpenFailuresLogged = 5;
static constexpr useconds_t kStartPause_us = 500000;

int gblLcmFd = -1;
uint8_t gblLcmFlags = 0;
uint8_t gblLcmLastFlags = kLcmNothingShown;
uint8_t gblLcmAlternate = kLcmNoDisk;
uint8_t gblLcmOrangeSet = 0;
int gblLcmOpenFailures = 0;

namespace
{

bool device_open()
{
    gblLcmFd = open(kAcmPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (gblLcmFd >= 0)
        return true;
    if (gblLcmOpenFailures < kOpenFailuresLogged) {
        gblLcmOpenFailures++;
        NORV_LOG(LOG_ERR, "Fail to open /dev/ttyACM from LCM");
    }
    return false;
}

void panel_start()
{
    static constexpr const char *kStartCommands[] = {"7", "3", "-Ff", "-Bo", "-Lf", "-If", "-Bd"};
    NORV_LOG(LOG_ERR, "The connection to the LCM module is established.\n");
    termios settings;
    if (tcgetattr(gblLcmFd, &settings) == 0) {
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        tcsetattr(gblLcmFd, TCSADRAIN, &settings);
    }
    gblLcmFlags = kLcmPrompt;
    gblLcmLastFlags = kLcmNothingShown;
    for (const char *command : kStartCommands) {
        lcm_command(command);
        usleep(kStartPause_us);
    }
    if (char *shared = lcm_shared_byte(IPC_CREAT | 0600))
        *shared = 0;
    if (gblLcmOrangeSet == 0) {
        NORVHWExternalControl(kHwStatusOrangeBlinking, 0, nullptr, kHwTypeDefault);
        gblLcmOrangeSet = 1;
    }
}

// What is missing asks for the final screen again once it is there.
void flag_set(LcmFlag flag, bool is_missing)
{
    if (is_missing)
        gblLcmFlags = static_cast<uint8_t>(gblLcmFlags | flag | kLcmPrompt);
    else
        gblLcmFlags = static_cast<uint8_t>(gblLcmFlags & ~flag);
}

void disks_look()
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (!disks) {
        NORV_LOG(LOG_ERR, "Out of memeory, failed to allocate memory for PNLIBSZLIST via NLIBCSzListAlloc");
        return;
    }
    if (external_disk_port_enum(kDiskPortInternal, disks.address()) < 0) {
        NORV_LOG(LOG_ERR, "Disk Enum Error.\n");
        return;
    }
    flag_set(kLcmNoDisk, disks.get()->nItem == 0);
}

void links_look()
{
    NET_IF_INFO interfaces[kNetInterfacesMax];
    const int count = NLIBNetGetInterfaceInfo(interfaces, kNetInterfacesMax, kNetPhysical);
    bool has_link = false;
    for (int i = 0; i < count; i++)
        has_link = has_link || interfaces[i].nLink == kNetLinkUp;
    flag_set(kLcmNoLink, !has_link);
}

void warnings_show()
{
    const auto changed = static_cast<uint8_t>(gblLcmLastFlags ^ gblLcmFlags);
    if ((gblLcmFlags & kLcmNoDisk) != 0 && gblLcmAlternate == kLcmNoDisk)
        lcm_show("No Hard Disks!", "Please Insert");
    if ((gblLcmFlags & kLcmNoLink) != 0 && gblLcmAlternate == kLcmNoLink)
        lcm_show("No Network Link!", "Please Connect");
    if ((gblLcmFlags & kLcmNoDisk) == 0 && (changed & kLcmNoDisk) != 0) {
        lcm_show("HDD Detected!", "Please Wait...");
        sleep(1);
    }
    if ((gblLcmFlags & kLcmNoLink) == 0 && (changed & kLcmNoLink) != 0) {
        lcm_show("Link Detected!", "Please Wait...");
        sleep(1);
    }
    gblLcmLastFlags = gblLcmFlags;
    gblLcmAlternate ^= kLcmNoDisk | kLcmNoLink;
}

void prompt_show()
{
    if (access(kMemtestPath, F_OK) == 0) {
        lcm_show("Memory Testing", "Please Wait...");
        lcm_command("-Fo");
        sleep(1);
        return;
    }
    char serial[64] = "";
    const UniqueFile file(fopen(kSerialPath, "re"));
    if (!file || fscanf(file.get(), "%63s", serial) != 1)
        NORV_LOG(LOG_ERR, "Failed to fscanf errno=%d, %m", errno);
    char second[80];
    snprintf(second, sizeof(second), "SN:%s", serial);
    lcm_show("Install NOS by Assistant or WebInstall", second);
}

} // namespace

void lcm_pass()
{
    if (gblLcmFd < 0) {
        if (!device_open())
            return;
        panel_start();
    }
    disks_look();
    links_look();
    warnings_show();
    if (gblLcmFlags == kLcmPrompt) {
        gblLcmFlags = 0;
        prompt_show();
    }
}
