#include "tools/norv-patch/patch_write.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "platform/codesign/tree_signature.h"
#include "tools/norv-patch/keys.h"

using codesign::Member;
using codesign::MemberKind;

static constexpr size_t kCopyBytes = 128 * 1024;
static constexpr time_t kMemberTime = 1735689600; // of all members, so that a folder makes one patch: 2025-01-01

static void writer_free(archive *writer)
{
    archive_write_free(writer);
}
using UniqueWriter = Unique<archive *, nullptr, writer_free>;
static void entry_free(archive_entry *entry)
{
    archive_entry_free(entry);
}
using UniqueEntry = Unique<archive_entry *, nullptr, entry_free>;

static bool complain(const std::string &path)
{
    fprintf(stderr, "norv-patch: %s: %s\n", path.c_str(), errno != 0 ? strerror(errno) : "cannot be packed");
    return false;
}

static bool content_write(archive *writer, const std::string &path)
{
    const UniqueFile file(fopen(path.c_str(), "re"));
    if (!file)
        return false;
    std::string buffer(kCopyBytes, '\0');
    while (const size_t got = fread(buffer.data(), 1, buffer.size(), file.get()))
        if (archive_write_data(writer, buffer.data(), got) != static_cast<la_ssize_t>(got))
            return false;
    return ferror(file.get()) == 0;
}

static bool member_write(archive *writer, const std::string &folder, const Member &member)
{
    const std::string path = folder + "/" + member.path;
    const UniqueEntry entry(archive_entry_new());
    if (!entry)
        return complain(path);
    archive_entry_set_pathname(entry.get(), member.path.c_str());
    archive_entry_set_filetype(entry.get(), member.kind == MemberKind::kFolder ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), static_cast<__LA_MODE_T>(member.mode));
    archive_entry_set_mtime(entry.get(), kMemberTime, 0);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(member.bytes));
    if (archive_write_header(writer, entry.get()) != ARCHIVE_OK ||
        (member.kind == MemberKind::kFile && !content_write(writer, path)))
        return complain(path);
    return true;
}

// A member that no honest patch has.
static bool hostile_member_write(archive *writer, PatchFault fault)
{
    static constexpr struct {
        PatchFault fault;
        const char *name;
        __LA_MODE_T type;
    } kHostile[] = {
        {PatchFault::kExtraFile, "extra", AE_IFREG},       {PatchFault::kEscape, "../escaped", AE_IFREG},
        {PatchFault::kAbsolute, "/tmp/escaped", AE_IFREG}, {PatchFault::kLink, "link", AE_IFLNK},
        {PatchFault::kDevice, "device", AE_IFCHR},
    };
    for (const auto &row : kHostile) {
        if (row.fault != fault)
            continue;
        const UniqueEntry entry(archive_entry_new());
        archive_entry_set_pathname(entry.get(), row.name);
        archive_entry_set_filetype(entry.get(), row.type);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), 0);
        if (row.type == AE_IFLNK)
            archive_entry_set_symlink(entry.get(), "/etc/passwd");
        if (row.type == AE_IFCHR)
            archive_entry_set_rdev(entry.get(), 0x103); // the null device
        return archive_write_header(writer, entry.get()) == ARCHIVE_OK;
    }
    return true;
}

static bool tar_write(const PatchPlan &plan, const std::vector<Member> &members, bool is_compressed,
                      const std::string &path)
{
    errno = 0;
    const UniqueWriter writer(archive_write_new());
    if (!writer || archive_write_set_format_pax_restricted(writer.get()) != ARCHIVE_OK ||
        (is_compressed && archive_write_add_filter_zstd(writer.get()) != ARCHIVE_OK) ||
        archive_write_open_filename(writer.get(), path.c_str()) != ARCHIVE_OK)
        return complain(path);
    for (const Member &member : members)
        if (!member_write(writer.get(), plan.folder, member))
            return false;
    if (!hostile_member_write(writer.get(), plan.fault) || archive_write_close(writer.get()) != ARCHIVE_OK)
        return complain(path);
    return true;
}

// The signatures that the patch is to bear over this text.
static bool signatures_make(const PatchPlan &plan, std::string_view text, std::vector<codesign::SignatureLine> *out)
{
    if (plan.fault == PatchFault::kUnsigned)
        return true;
    codesign::SignatureLine line;
    const std::string other = plan.fault == PatchFault::kSignature ? "another text" : std::string(text);
    if (!message_sign(plan.key_folder, plan.key_type, plan.fault == PatchFault::kStranger, other, &line))
        return false;
    out->push_back(line);
    return true;
}

static bool tree_get(const std::string &folder, const char *but_for, std::vector<Member> *out)
{
    std::string in_the_way;
    bool is_plain = codesign::tree_list(folder, but_for, out, &in_the_way);
    for (const Member &member : *out)
        if (is_plain && member.kind == MemberKind::kLink) {
            in_the_way = member.path;
            is_plain = false;
        }
    if (!is_plain)
        fprintf(stderr, "norv-patch: cannot take %s into a patch\n", in_the_way.c_str());
    return is_plain;
}

static bool old_form_write(const PatchPlan &plan)
{
    const std::string signature_path = plan.folder + "/" + codesign::kTreeSignatureName;
    unlink(signature_path.c_str());
    std::vector<Member> members;
    std::vector<codesign::SignatureLine> signatures;
    if (!tree_get(plan.folder, codesign::kTreeSignatureName, &members) ||
        !signatures_make(plan, codesign::members_text(members), &signatures))
        return false;
    if (!signatures.empty()) {
        const UniqueFile file(fopen(signature_path.c_str(), "we"));
        const std::string text = codesign::tree_signature_text(signatures);
        if (!file || fwrite(text.data(), 1, text.size(), file.get()) != text.size() || fflush(file.get()) != 0)
            return complain(signature_path);
    }
    return tree_get(plan.folder, nullptr, &members) && tar_write(plan, members, false, plan.path);
}

static bool file_append(FILE *out, const std::string &path)
{
    const UniqueFile file(fopen(path.c_str(), "re"));
    if (!file)
        return false;
    std::string buffer(kCopyBytes, '\0');
    while (const size_t got = fread(buffer.data(), 1, buffer.size(), file.get()))
        if (fwrite(buffer.data(), 1, got, out) != got)
            return false;
    return ferror(file.get()) == 0;
}

static bool archive_form_write(const PatchPlan &plan)
{
    const std::string payload = plan.path + ".payload";
    std::vector<Member> members;
    std::vector<codesign::SignatureLine> signatures;
    codesign::Digest digest;
    uint64_t bytes = 0;
    unlink((plan.folder + "/" + codesign::kTreeSignatureName).c_str());
    bool is_done = tree_get(plan.folder, nullptr, &members) && tar_write(plan, members, true, payload);
    const UniqueFd file(open(payload.c_str(), O_RDONLY | O_CLOEXEC));
    is_done = is_done && file && codesign::digest_read(file.get(), &digest, &bytes);
    const std::string manifest = is_done ? codesign::manifest_text(digest, bytes, members) : "";
    is_done = is_done && signatures_make(plan, manifest, &signatures);
    if (is_done) {
        const UniqueFile out(fopen(plan.path.c_str(), "we"));
        const std::string head = codesign::head_text(signatures, manifest);
        is_done = (out && fwrite(head.data(), 1, head.size(), out.get()) == head.size() &&
                   file_append(out.get(), payload) && fflush(out.get()) == 0) ||
                  complain(plan.path);
    }
    unlink(payload.c_str());
    return is_done;
}

// Spoils a finished patch.
static bool patch_spoil(const PatchPlan &plan)
{
    const UniqueFd file(open(plan.path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0)
        return complain(plan.path);
    if (plan.fault == PatchFault::kTruncated)
        return ftruncate(file.get(), status.st_size / 4 * 3) == 0 || complain(plan.path);
    if (plan.fault != PatchFault::kPayload)
        return true;
    const off_t at = plan.is_old_form ? 512 : status.st_size / 2; // behind the first member's head, or in the middle
    char byte = 0;
    if (pread(file.get(), &byte, 1, at) != 1)
        return complain(plan.path);
    byte = static_cast<char>(byte ^ 1);
    return pwrite(file.get(), &byte, 1, at) == 1 || complain(plan.path);
}

bool patch_write(const PatchPlan &plan)
{
    const bool is_done = keys_ensure(plan.key_folder, plan.key_type) &&
                         checksum_list_write(plan.folder, plan.list_fault) &&
                         (plan.is_old_form ? old_form_write(plan) : archive_form_write(plan)) && patch_spoil(plan);
    if (!is_done)
        unlink(plan.path.c_str());
    return is_done;
}
