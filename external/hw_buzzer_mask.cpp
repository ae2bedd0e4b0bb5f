#include "external/hw_control.h"

#include <cstdio>
#include <cstdlib>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kRevisionPath[] = "/proc/sys/kernel/norv_hw_revision";
static constexpr char kMaskKey[] = "buzzeroffen";

// Reads the board revision, one word. Returns false when there is none to tell, as on the first revision.
static bool revision_read(char *revision, int size)
{
    const UniqueFile file(fopen(kRevisionPath, "re"));
    if (!file)
        return false;
    if (NLIBCFgets(revision, size, file.get()) == nullptr || NLIBCStrTrimSpace(revision, nullptr) <= 0) {
        NORV_LOG(LOG_ERR, "file is empty, assuming the first revision.");
        return false;
    }
    return true;
}

unsigned long buzzer_mask_get()
{
    char revision[32], key[64], value[64];
    int length = 0;
    if (revision_read(revision, sizeof(revision)) &&
        NLIBCStrSnprintf(key, sizeof(key), "%s_%s", kMaskKey, revision) > 0)
        length = NLIBCFileGetKeyValue(kDefaultsPath, key, value, sizeof(value), 0);
    if (length <= 0)
        length = NLIBCFileGetKeyValue(kDefaultsPath, kMaskKey, value, sizeof(value), 0);
    return length > 0 ? strtoul(value, nullptr, 16) : 0;
}
