#include "external/hw_control.h"

#include "lib/conf.h"
#include "lib/proc.h"
#include "lib/report.h"

namespace
{

struct PowerMode {
    int mode;
    const char *word;
    const char *program;
};
constexpr int kLastMode = 1;
constexpr PowerMode kPowerModes[] = {
    {0, "poweroff", "/sbin/poweroff"},
    {1, "reboot", "/sbin/reboot"},
    {3, "safe shutdown", nullptr}, // a word of full systems; refused here
};

} // namespace

int NORVSysPowerAction(int mode)
{
    if (mode < 0 || mode > kLastMode) {
        NORV_LOG(LOG_ERR, "Unknown option (%d)", mode);
        NLIBCErrSet(kErrBadParameter, __FILE_NAME__, __LINE__);
        return 0;
    }
    static_cast<void>(conf_support_led_behavior_v2()); // asked, but both kinds of models are told alike
    if (NORVHWExternalControl(kHwSystemShutdown, 0, nullptr, kHwTypeShutdown) < 0)
        NORV_LOG(LOG_INFO, "norvpoweroff: NORVHWExternalControl[NORV_SYS_SHUTDOWN] failed");
    NLIBCExec("/usr/norv/sbin/backup_junior_log.sh");
    NORV_LOG(LOG_ERR, "norvpoweroff: System is going to [%s]", kPowerModes[mode].word);
    NLIBCExec(kPowerModes[mode].program);
    return 0;
}
