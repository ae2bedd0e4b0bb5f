#include <algorithm>
#include <cstdio>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net_seq.h"

static constexpr char kRevisionPath[] = "/proc/sys/kernel/norv_hw_revision";
static constexpr char kKey[] = "netif_seq";

// The key of this board's revision where the description has one, else that of all boards.
static void key_choose(char *key, size_t size)
{
    char revision[4]; // at most three characters
    const UniqueFile file(fopen(kRevisionPath, "re"));
    if (file && NLIBCFgets(revision, sizeof(revision), file.get()) != nullptr &&
        NLIBCStrTrimSpace(revision, nullptr) > 0 && NLIBCStrSnprintf(key, size, "%s_%s", kKey, revision) > 0 &&
        NLIBCFileGetKeyValue(kDefaultsPath, key, nullptr, 0, 0) > kEmptyValue)
        return;
    NLIBCStrSnprintf(key, size, "%s", kKey);
}

int net_seq_numbers_read(int internal, PNLIBSZLIST *numbers)
{
    char key[32], value[128];
    key_choose(key, sizeof(key));
    const int length = NLIBCFileGetKeyValue(kDefaultsPath, key, value, sizeof(value), 0);
    if (length < 0) {
        NORV_LOG(LOG_ERR, "Failed to get key %s from %s[0x%04X %s:%d]", key, kDefaultsPath, NORV_ERR_ARGS);
        return -1;
    }
    if (length > kEmptyValue && NLIBCStrTok(value, " ", numbers) < 0) {
        NORV_LOG(LOG_ERR, "failed to parse %s", value);
        return -1;
    }
    for (int i = 0; length <= kEmptyValue && i < std::min(internal, kNetSeqMax); i++) {
        NLIBCStrSnprintf(value, sizeof(value), "%d", i);
        if (NLIBCSzListPush(numbers, value) < 0)
            return -1;
    }
    return 0;
}
