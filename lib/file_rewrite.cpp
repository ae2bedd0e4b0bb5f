#include "lib/file_rewrite.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

#include "lib/report.h"

static constexpr mode_t kModeBits = 07777;
static constexpr size_t kLeastBuffer = 128; // the C library bypasses a smaller one on long writes

static int copy_open(Rewrite *rewrite, const char *file)
{
    const int length = snprintf(rewrite->copy_path, sizeof(rewrite->copy_path), "%s.XXXXXX", file);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(rewrite->copy_path))
        return fail(kErrOpen);
    UniqueFd fd(mkostemp(rewrite->copy_path, O_CLOEXEC));
    if (!fd)
        return fail(kErrOpen);
    rewrite->copy_name.reset(rewrite->copy_path);
    rewrite->copy.reset(fdopen(fd.get(), "w"));
    if (!rewrite->copy)
        return fail(kErrOpen);
    static_cast<void>(fd.release()); // the stream has it
    if (fstat(fileno(rewrite->copy.get()), &rewrite->copy_status) != 0)
        return fail(kErrStat);
    return 0;
}

int rewrite_begin(Rewrite *rewrite, int source, const char *file, size_t added_bytes, const RewriteRules &rules)
{
    if (fstat(source, &rewrite->old_status) != 0)
        return fail(kErrStat);
    if (S_ISDIR(rewrite->old_status.st_mode))
        return fail(kErrOpen);
    if (copy_open(rewrite, file) != 0)
        return -1;
    if (file_text_read(source, "", static_cast<size_t>(rewrite->old_status.st_size), &rewrite->old_text) != 0)
        return NLIBCErrGet() == kErrRead ? fail(rules.read_error) : -1;
    const size_t room = rewrite->old_text.size + added_bytes + kLeastBuffer;
    rewrite->buffer.reset(static_cast<char *>(malloc(room)));
    if (!rewrite->buffer)
        return fail(kErrOutOfMemory);
    if (setvbuf(rewrite->copy.get(), rewrite->buffer.get(), _IOFBF, room) != 0)
        return fail(kErrWrite);
    return 0;
}

int rewrite_commit(Rewrite *rewrite, const char *file, const RewriteRules &rules)
{
    const struct stat &want = rewrite->old_status;
    const struct stat &have = rewrite->copy_status;
    const bool set_owner = rules.owner_always || want.st_uid != have.st_uid || want.st_gid != have.st_gid;
    const bool set_mode = rules.owner_always || ((want.st_mode ^ have.st_mode) & kModeBits) != 0;
    const int fd = fileno(rewrite->copy.get());
    // The owner before the mode: changing it takes the set-id bits away.
    if (fflush(rewrite->copy.get()) != 0 || fsync(fd) != 0 ||
        (set_owner && fchown(fd, want.st_uid, want.st_gid) != 0) ||
        (set_mode && fchmod(fd, want.st_mode & kModeBits) != 0) || fclose(rewrite->copy.release()) != 0)
        return fail(errno == EDQUOT ? rules.quota_error : kErrWrite);
    return rename(rewrite->copy_path, file) == 0 ? 0 : fail(kErrRename);
}
