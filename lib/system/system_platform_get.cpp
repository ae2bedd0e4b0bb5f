#include <cstring>
#include <string_view>

#include "lib/file.h"
#include "lib/report.h"
#include "lib/system/system.h"

int system_platform_get(const char *conf_path, char *out, size_t size)
{
    char unique[128];
    if (NLIBCFileGetKeyValue(conf_path, "unique", unique, sizeof(unique), 0) <= 0) {
        NORV_LOG(LOG_ERR, "failed to get unique from %s errno=[0x%04X %s:%d]", conf_path, NORV_ERR_ARGS);
        return -1;
    }
    const std::string_view text = unique;
    const size_t begin = text.find('_') + 1, end = begin == 0 ? text.npos : text.find('_', begin);
    if (end == text.npos || end - begin >= size) {
        NORV_LOG(LOG_ERR, "failed to parse platform from unique: [%s]", unique);
        return -1;
    }
    text.copy(out, end - begin, begin);
    out[end - begin] = '\0';
    return 0;
}
