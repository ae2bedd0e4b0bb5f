#include "lib/conf.h"

#include <unistd.h>

#include "lib/file.h"
#include "lib/report.h"

static int dual_head_ask()
{
    static constexpr char kYesPath[] = "/tmp/.dualhead";
    static constexpr char kNoPath[] = "/tmp/.not.dualhead";
    if (access(kYesPath, F_OK) == 0)
        return 1;
    if (access(kNoPath, F_OK) == 0)
        return 0;
    const int answer = NLIBCFileCheckKeyValue(kDefaultsPath, "support_dual_head", "yes", 0);
    const char *marker = answer == 1 ? kYesPath : kNoPath;
    if (NLIBCFileTouch(marker) != 0)
        NORV_LOG(LOG_ERR, "Failed to touch '%s'", marker);
    return answer;
}

int NLIBCConfSupportDualHead()
{
    static int answer = -1;
    if (answer < 0)
        answer = dual_head_ask();
    return answer;
}
