#include "external/pstore.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/keep_report.h"
#include "autocleanup/unique.h"
#include "lib/report.h"

static constexpr char kPstorePath[] = "/sys/fs/pstore";
static constexpr char kCollectionsPath[] = "/var/log/pstore";
static constexpr size_t kCopyBytes = 65536;

namespace
{

bool is_record(const dirent *entry)
{
    return entry->d_name[0] != '.';
}

bool bytes_copy(int from, int to)
{
    static char buffer[kCopyBytes];
    for (;;) {
        const ssize_t count = read(from, buffer, sizeof(buffer));
        if (count <= 0)
            return count == 0;
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = write(to, buffer + done, static_cast<size_t>(count - done));
            if (written < 0)
                return false;
            done += written;
        }
    }
}

// Copies one record under a temporary name and gives it its own once its bytes are on the disk; then the source goes.
int record_move(int source_dir, int target_dir, const char *name)
{
    const UniqueFd source(openat(source_dir, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!source)
        return fail(kErrOpen);
    char temp[NAME_MAX + 8];
    snprintf(temp, sizeof(temp), ".%s.tmp", name);
    const UniqueFd target(openat(target_dir, temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!target)
        return fail(kErrOpen);
    int code = kErrNone;
    if (!bytes_copy(source.get(), target.get()) || fsync(target.get()) != 0)
        code = kErrWrite;
    else if (renameat(target_dir, temp, target_dir, name) != 0 || fsync(target_dir) != 0)
        code = kErrRename;
    if (code == kErrNone)
        return unlinkat(source_dir, name, 0) == 0 ? 0 : fail(kErrWrite);
    fail(code);
    const KeepReport keep; // the caller tells why
    unlinkat(target_dir, temp, 0);
    return -1;
}

// Makes the folder of this collection and opens it: its name sorts by time, a number tells two of one second apart. The
// folder is on the disk before the first source goes.
UniqueFd collection_make(int collections_dir, char (&name)[48])
{
    char stamp[32];
    const time_t now = time(nullptr);
    tm utc = {};
    gmtime_r(&now, &utc);
    strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &utc);
    for (int number = 0; number < 100; number++) {
        snprintf(name, sizeof(name), "%s-%02d", stamp, number);
        if (mkdirat(collections_dir, name, 0700) == 0 && fsync(collections_dir) == 0)
            return UniqueFd(openat(collections_dir, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (errno != EEXIST)
            break;
    }
    return UniqueFd();
}

void collection_remove(int collections_dir, const char *name)
{
    UniqueFd folder(openat(collections_dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const UniqueDir records(folder ? fdopendir(folder.get()) : nullptr);
    if (!records)
        return;
    static_cast<void>(folder.release()); // the stream has it
    while (const dirent *entry = readdir(records.get()))
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            unlinkat(dirfd(records.get()), entry->d_name, 0);
    unlinkat(collections_dir, name, AT_REMOVEDIR);
}

// Removes the oldest collections beyond the number that is kept, but never the one just made: a clock that was set back
// makes it look old.
void collections_trim(int collections_dir, const char *made)
{
    dirent **folders = nullptr;
    const int count = scandirat(
        collections_dir, ".", &folders, [](const dirent *entry) { return is_record(entry) ? 1 : 0; }, alphasort);
    int surplus = count - kPstoreCollectionsMax;
    for (int i = 0; i < count; i++) {
        if (surplus > 0 && strcmp(folders[i]->d_name, made) != 0) {
            collection_remove(collections_dir, folders[i]->d_name);
            surplus--;
        }
        free(folders[i]);
    }
    free(folders);
}

} // namespace

int pstore_collect()
{
    const UniqueDir records(opendir(kPstorePath));
    if (!records)
        return errno == ENOENT ? 0 : fail(kErrOpen);
    if (mkdir(kCollectionsPath, 0755) != 0 && errno != EEXIST)
        return fail(kErrOpen);
    const UniqueFd collections(open(kCollectionsPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!collections)
        return fail(kErrOpen);
    UniqueFd collection;
    char name[48] = "";
    int copied = 0;
    bool is_whole = true;
    while (const dirent *entry = readdir(records.get())) {
        if (!is_record(entry))
            continue;
        if (!collection) // no record, no folder
            collection = collection_make(collections.get(), name);
        if (!collection)
            return fail(kErrOpen);
        if (record_move(dirfd(records.get()), collection.get(), entry->d_name) == 0) {
            copied++;
        } else {
            NORV_LOG(LOG_ERR, "Failed to collect %s/%s: %m", kPstorePath, entry->d_name);
            is_whole = false;
        }
    }
    if (collection && copied == 0) // would push an older one out
        unlinkat(collections.get(), name, AT_REMOVEDIR);
    collections_trim(collections.get(), name);
    return is_whole ? copied : -1;
}
