#include "lib/conf.h"

#include <cstdio>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/report.h"

int NLIBCConfIsVmmVnos()
{
    static constexpr char kPath[] = "/proc/sys/kernel/norv_hw_version";
    static bool known = false;
    static int answer = 0;
    if (known)
        return answer;
    const UniqueFile file(fopen(kPath, "re"));
    if (!file) {
        NORV_LOG(LOG_ERR, "Failed to open file[%s].", kPath);
        return answer;
    }
    char word[64];
    if (fscanf(file.get(), "%63s", word) != 1) {
        NORV_LOG(LOG_ERR, "Failed to read file[%s].", kPath);
        return answer;
    }
    known = true;
    answer = strcmp(word, "VirtualNOS") == 0 ? 1 : 0;
    return answer;
}
