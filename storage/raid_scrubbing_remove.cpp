#include <cstring>
#include <unistd.h>

#include "lib/file.h"
#include "lib/file_text.h"
#include "lib/report.h"
#include "lib/text.h"
#include "storage/raid_parts.h"
#include "storage/space.h"

namespace
{

constexpr int kLockWaitSeconds = 10;
constexpr const char *kSectionFiles[] = {"/usr/norv/etc/datascrubbing.conf",
                                         "/var/lib/datascrubbing/datascrubbing.status"};
constexpr char kListFile[] = "/run/space/datascrubbingmd.conf";
constexpr char kListKey[] = "datascrubbingmdlist";
constexpr char kSeparators[] = ", \t";

// Takes the word out of a list, with the separator that follows it or else the one before it. Returns whether it was
// there.
bool word_remove(char *list, const char *word)
{
    const size_t length = strlen(word);
    for (char *at = list; *(at += strspn(at, kSeparators)) != '\0'; at += strcspn(at, kSeparators)) {
        if (strcspn(at, kSeparators) != length || strncmp(at, word, length) != 0)
            continue;
        char *rest = at + length + (at[length] != '\0' ? 1 : 0);
        if (*rest == '\0' && at > list)
            at--;
        memmove(at, rest, strlen(rest) + 1);
        return true;
    }
    return false;
}

int list_remove(const char *name)
{
    char list[4096];
    const int found = NLIBCFileGetKeyValue(kListFile, kListKey, list, sizeof(list), 0);
    if (found < 0)
        return -1;
    if (found == 0 || !word_remove(list, name))
        return 0;
    return NLIBCFileSetKeyValue(kListFile, kListKey, list, kConfFormat) < 0 ? -1 : 0;
}

int files_remove(const char *name)
{
    for (const char *file : kSectionFiles)
        if (access(file, F_OK) == 0 && NLIBCFileRemoveSection(file, name) < 0)
            return -1;
    if (strncmp(name, "md", 2) == 0 && access(kListFile, F_OK) == 0)
        return list_remove(name);
    return 0;
}

} // namespace

int raid_scrubbing_remove(const char *name)
{
    const int lock = space_lock(kSpaceLockDataScrubbing, kLockWaitSeconds);
    if (lock < 0)
        return -1;
    const int removed = files_remove(name);
    const int unlocked = space_unlock(lock);
    return removed == 0 && unlocked == 0 ? 0 : -1;
}
