#include "platform/codesign/signed_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace codesign
{

static constexpr size_t kHeadLimit = 9 << 20;
static constexpr size_t kCopyBytes = 128 * 1024;

// Reads the beginning of a file.
static bool head_read(int fd, std::string *out)
{
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    out->resize(std::min(kHeadLimit, static_cast<size_t>(status.st_size)));
    size_t have = 0;
    while (have < out->size()) {
        const ssize_t got = pread(fd, out->data() + have, out->size() - have, static_cast<off_t>(have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        have += static_cast<size_t>(got);
    }
    return true;
}

static bool head_is_signed(const ArchiveHead &head, const std::string &key_folder, int key_type)
{
    for (const SignatureLine &line : head.signatures)
        if (line.key_type == key_type)
            return signature_is_good(key_folder, key_type, head.manifest, line.signature);
    return false;
}

static bool payload_is_whole(int fd, const ArchiveHead &head)
{
    Digest digest;
    uint64_t bytes = 0;
    return lseek(fd, static_cast<off_t>(head.payload_at), SEEK_SET) >= 0 && digest_read(fd, &digest, &bytes) &&
           bytes == head.payload_bytes && digest == head.payload_digest;
}

int32_t archive_open(SignedArchive *archive, const std::string &path, const std::string &key_folder, int key_type)
{
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return kArchiveCannotOpen;
    std::string beginning;
    ArchiveHead head;
    if (!head_read(file.get(), &beginning) || !head_parse(beginning, &head) ||
        !head_is_signed(head, key_folder, key_type) || !payload_is_whole(file.get(), head))
        return kArchiveBadSignature;
    archive->file = std::move(file);
    archive->payload_at = head.payload_at;
    archive->members = std::move(head.members);
    archive->names.clear();
    for (const Member &member : archive->members)
        archive->names.push_back(member.path.c_str());
    archive->names.push_back(nullptr);
    return kArchiveNoError;
}

static void reader_free(archive *reader)
{
    archive_read_free(reader);
}
static void writer_free(archive *writer)
{
    archive_write_free(writer);
}
using UniqueReader = Unique<archive *, nullptr, reader_free>;
using UniqueWriter = Unique<archive *, nullptr, writer_free>;

// The folder that this process works in, until scope exit. The writer resolves names from there, and so refuses
// whatever leads out of it.
class ScopedFolder
{
  public:
    explicit ScopedFolder(const char *path) : before_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        entered_ = before_ && chdir(path) == 0;
    }
    ScopedFolder(const ScopedFolder &) = delete;
    ScopedFolder &operator=(const ScopedFolder &) = delete;
    ~ScopedFolder()
    {
        if (entered_ && fchdir(before_.get()) != 0)
            entered_ = false; // the folder is gone: there is nowhere to go back to
    }
    [[nodiscard]] bool entered() const { return entered_; }

  private:
    UniqueFd before_;
    bool entered_;
};

bool tar_open(struct archive *reader, int file)
{
    archive_read_support_filter_gzip(reader);
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_format_tar(reader);
    return archive_read_open_fd(reader, file, kCopyBytes) == ARCHIVE_OK;
}

static std::string_view entry_path(archive_entry *entry)
{
    const char *name = archive_entry_pathname(entry);
    std::string_view path = name != nullptr ? name : "";
    if (path.starts_with("./"))
        path.remove_prefix(2);
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

static bool is_wanted(std::string_view path, const char *const *wanted)
{
    if (wanted == nullptr)
        return true;
    for (; *wanted != nullptr; wanted++)
        if (path == *wanted)
            return true;
    return false;
}

// Whether an entry is what the manifest says, as far as its head tells.
static bool entry_fits(archive_entry *entry, const Member &member)
{
    if (archive_entry_hardlink(entry) != nullptr)
        return false;
    switch (member.kind) {
    case MemberKind::kFile:
        return archive_entry_filetype(entry) == AE_IFREG &&
               archive_entry_size(entry) == static_cast<la_int64_t>(member.bytes);
    case MemberKind::kFolder:
        return archive_entry_filetype(entry) == AE_IFDIR;
    case MemberKind::kLink:
        break;
    }
    return false; // a patch needs no links, and nothing is ever written through one
}

static int32_t content_copy(archive *reader, archive *writer, const Member &member)
{
    std::string buffer(kCopyBytes, '\0');
    Sha256 sum;
    for (;;) {
        const la_ssize_t got = archive_read_data(reader, buffer.data(), buffer.size());
        if (got < 0)
            return kArchiveBadSignature;
        if (got == 0)
            break;
        sum.update(buffer.data(), static_cast<size_t>(got));
        if (archive_write_data(writer, buffer.data(), static_cast<size_t>(got)) != got)
            return kArchiveCannotWrite;
    }
    if (archive_write_finish_entry(writer) != ARCHIVE_OK)
        return kArchiveCannotWrite;
    return member.kind == MemberKind::kFolder || sum.finish() == member.digest ? kArchiveNoError : kArchiveBadSignature;
}

static int32_t entry_extract(archive *reader, archive *writer, archive_entry *entry, const Member &member)
{
    archive_entry_set_pathname(entry, member.path.c_str());
    archive_entry_set_perm(entry, static_cast<__LA_MODE_T>(member.mode));
    if (archive_write_header(writer, entry) != ARCHIVE_OK)
        return kArchiveCannotWrite;
    const int32_t error = content_copy(reader, writer, member);
    if (error != kArchiveNoError && member.kind == MemberKind::kFile)
        unlink(member.path.c_str());
    return error;
}

static int32_t members_extract(const SignedArchive &from, const char *const *wanted, archive *reader, archive *writer)
{
    archive_entry *entry = nullptr;
    int next;
    while ((next = archive_read_next_header(reader, &entry)) == ARCHIVE_OK) {
        const std::string_view path = entry_path(entry);
        const Member *member = member_find(from.members, path);
        if (member == nullptr || !entry_fits(entry, *member))
            return kArchiveBadSignature;
        const int32_t error = is_wanted(path, wanted) ? entry_extract(reader, writer, entry, *member) : kArchiveNoError;
        if (error != kArchiveNoError)
            return error;
    }
    return next == ARCHIVE_EOF ? kArchiveNoError : kArchiveBadSignature;
}

int32_t archive_extract(SignedArchive *from, const char *const *wanted, int flags)
{
    if (!from->file)
        return kArchiveNotOpen;
    for (const char *const *name = wanted; name != nullptr && *name != nullptr; name++)
        if (member_find(from->members, *name) == nullptr)
            return kArchiveNoMember;
    const ScopedFolder folder(from->dest.c_str());
    if (!folder.entered())
        return kArchiveNoFolder;
    const UniqueReader reader(archive_read_new());
    const UniqueWriter writer(archive_write_disk_new());
    if (!reader || !writer || lseek(from->file.get(), static_cast<off_t>(from->payload_at), SEEK_SET) < 0 ||
        !tar_open(reader.get(), from->file.get()))
        return kArchiveBadSignature;
    int options = ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                  ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS | ARCHIVE_EXTRACT_TIME;
    if ((flags & kExtractModes) != 0)
        options |= ARCHIVE_EXTRACT_PERM;
    if ((flags & kExtractReplace) != 0)
        options |= ARCHIVE_EXTRACT_UNLINK;
    archive_write_disk_set_options(writer.get(), options);
    return members_extract(*from, wanted, reader.get(), writer.get());
}

bool file_is_tar(const char *path)
{
    static constexpr size_t kMarkAt = 257; // POSIX ustar header
    char block[512];
    const UniqueFile file(fopen(path, "re"));
    return file && fread(block, 1, sizeof(block), file.get()) == sizeof(block) &&
           memcmp(block + kMarkAt, "ustar", 5) == 0;
}

} // namespace codesign
