#include "lib/norvarchive.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lib/codesign_library.h"
#include "lib/report.h"

struct NORVInstNorvArchive {
    void *handle; // of the library
    char *name;
};

static constexpr int kExtractFlags = 5;
static constexpr size_t kListTextBytes = 4000;

struct ArchiveKind {
    const char *word;
    int key_type;
    const char *dest; // where every archive of the kind is extracted; NULL: where the caller wants
};
static constexpr ArchiveKind kKinds[] = {
    {"System", 0, nullptr}, {"Nano", 1, nullptr}, {"SecurityJson", 2, "/dev/null"}, {"Small Patch", 10, nullptr}};
static_assert(sizeof(kKinds) / sizeof(kKinds[0]) == kNorvArchiveSmallPatch + 1);

static void library_archive_free(void *handle)
{
    codesign_library()->norvarchive_free(handle);
}
using UniqueLibraryArchive = Unique<void *, nullptr, library_archive_free>;

// One operation of the library: a line when it begins, and one with its outcome and time when it ends.
class Operation
{
  public:
    // `what` is the operation's part of the line, brackets included, and outlives it.
    Operation(const char *name, const char *what) : name_(name), what_(what)
    {
        NORV_LOG(LOG_INFO, "norvinstall: norvarchive: [%s]%s Start", name_, what_);
        has_begun_ = clock_gettime(CLOCK_MONOTONIC, &begin_) == 0;
    }
    void end(const char *outcome, int32_t error) const
    {
        timespec now;
        long double seconds = -1;
        if (has_begun_ && clock_gettime(CLOCK_MONOTONIC, &now) == 0)
            seconds = static_cast<long double>(now.tv_sec - begin_.tv_sec) +
                      static_cast<long double>(now.tv_nsec - begin_.tv_nsec) / 1e9L;
        NORV_LOG(LOG_INFO, "norvinstall: norvarchive: [%s]%s End: [%s][%llu][%.3Lfs]", name_, what_, outcome,
                 static_cast<unsigned long long>(error), seconds);
    }
    // The end of one that can only succeed or fail. Returns a NorvArchiveResult.
    int end(bool is_good, int32_t error) const
    {
        end(is_good ? "Success" : "Fail", error);
        return is_good ? kNorvArchiveGood : kNorvArchiveFailed;
    }

  private:
    const char *name_, *what_;
    timespec begin_ = {};
    bool has_begun_;
};

static int32_t error_of(const void *handle)
{
    return handle != nullptr ? static_cast<const CodesignHandle *>(handle)->error : 0;
}

static int bad_parameters()
{
    NORV_LOG(LOG_ERR, "Bad Parameters");
    return kNorvArchiveFailed;
}

static NORVInstNorvArchive *wrapper_make(const char *name, UniqueLibraryArchive *handle)
{
    UniqueText copy(strdup(name));
    if (!copy) {
        NORV_LOG(LOG_ERR, "Failed to create strdup archive name [%s]", name);
        return nullptr;
    }
    auto *wrapper = static_cast<NORVInstNorvArchive *>(calloc(1, sizeof(NORVInstNorvArchive)));
    if (wrapper == nullptr) {
        NORV_LOG(LOG_ERR, "Failed to calloc NORVInstNorvArchive [%m]");
        return nullptr;
    }
    *wrapper = {handle->release(), copy.release()};
    return wrapper;
}

int NorvArchiveOpen(NorvArchiveType type, const char *path, const char *dest, NORVInstNorvArchive **out)
{
    const ArchiveKind &kind = kKinds[type];
    if (kind.dest != nullptr)
        dest = kind.dest;
    if (path == nullptr || dest == nullptr)
        return bad_parameters();
    const CodesignLibrary *library = codesign_library();
    if (library == nullptr)
        return kNorvArchiveFailed;
    NORV_LOG(LOG_INFO, "norvinstall: norvarchive: [%s][OPEN] Type: %s", path, kind.word);
    const Operation init(path, "[INIT]");
    UniqueLibraryArchive handle(library->norvarchive_init(dest));
    (void)init.end(static_cast<bool>(handle), error_of(handle.get()));
    if (!handle) {
        NORV_LOG(LOG_ERR, "Failed to init archive");
        return kNorvArchiveFailed;
    }
    const Operation open(path, "[OPEN]");
    const bool is_open = library->norvarchive_open_with_keytype(handle.get(), path, kind.key_type);
    const int32_t error = error_of(handle.get());
    if (!is_open && error == kCodesignBadSignature) {
        open.end("Bad Sig", error);
        return kNorvArchiveBadSignature;
    }
    if (open.end(is_open, error) != kNorvArchiveGood)
        return kNorvArchiveFailed;
    if (out == nullptr)
        return kNorvArchiveGood;
    NORVInstNorvArchive *wrapper = wrapper_make(path, &handle);
    if (wrapper == nullptr) {
        NORV_LOG(LOG_ERR, "Failed to create NORVInstNorvArchive");
        return kNorvArchiveFailed;
    }
    *out = wrapper;
    return kNorvArchiveGood;
}

static int extract_members(NORVInstNorvArchive *archive, const char *const *members, const char *what)
{
    const Operation extract(archive->name, what);
    const bool is_good = codesign_library()->norvarchive_extract_multiple(archive->handle, members, kExtractFlags);
    return extract.end(is_good, error_of(archive->handle));
}

int NorvArchiveExtract(NORVInstNorvArchive *archive, const char *member)
{
    if (archive == nullptr)
        return bad_parameters();
    if (member == nullptr)
        return extract_members(archive, nullptr, "[EXTRACT_ALL]");
    char what[512];
    snprintf(what, sizeof(what), "[EXTRACT_ONE][%s]", member);
    const Operation extract(archive->name, what);
    const bool is_good = codesign_library()->norvarchive_extract_one(archive->handle, member, kExtractFlags);
    return extract.end(is_good, error_of(archive->handle));
}

int NorvArchiveExtractMultiple(NORVInstNorvArchive *archive, const char *const *members)
{
    if (archive == nullptr || members == nullptr)
        return bad_parameters();
    char names[kListTextBytes] = "";
    size_t length = 0;
    int count = 0;
    for (; members[count] != nullptr; count++)
        if (length < sizeof(names))
            length += static_cast<size_t>(
                snprintf(names + length, sizeof(names) - length, "%s%s", count == 0 ? "" : ", ", members[count]));
    char what[32];
    snprintf(what, sizeof(what), "[EXTRACT_MUL][%d]", count);
    NORV_LOG(LOG_INFO, "norvinstall: norvarchive: [%s]%s List: %s", archive->name, what, names);
    return extract_members(archive, members, what);
}

const char *const *NorvArchiveGetFileList(NORVInstNorvArchive *archive, uint64_t *count)
{
    if (archive == nullptr || count == nullptr) {
        bad_parameters();
        return nullptr;
    }
    const CodesignLibrary *library = codesign_library();
    *count = library->norvarchive_get_filenum(archive->handle);
    const char *const *list = library->norvarchive_get_filelist(archive->handle);
    if (list == nullptr)
        NORV_LOG(LOG_ERR, "Failed to get file list [%s][%llu]", archive->name,
                 static_cast<unsigned long long>(error_of(archive->handle)));
    return list;
}

void NorvArchiveFree(NORVInstNorvArchive *archive)
{
    if (archive == nullptr)
        return;
    const Operation freeing(archive->name, "[FREE]");
    library_archive_free(archive->handle);
    freeing.end("Success", 0);
    free(archive->name);
    free(archive);
}

int NorvArchiveExtractFrom(NorvArchiveType type, const char *path, const char *dest, const char *member)
{
    UniqueNorvArchive archive;
    const int result = NorvArchiveOpen(type, path, dest, archive.address());
    return result == kNorvArchiveGood ? NorvArchiveExtract(archive.get(), member) : result;
}
