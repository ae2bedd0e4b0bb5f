// The library's calls, as the executable makes them.
#include <new>

#include "platform/codesign/signed_archive.h"
#include "platform/codesign/tree_signature.h"

#ifndef CODESIGN_KEY_FOLDER
#define CODESIGN_KEY_FOLDER "/usr/norv/etc/codesign"
#endif

using codesign::SignedArchive;

struct TreeSign {
    int32_t error = 0; // first, as callers expect
    std::vector<codesign::SignatureLine> signatures;
};

static constexpr size_t kSignatureFileLimit = 64 * 1024;

static bool archive_note(void *handle, int32_t error)
{
    static_cast<SignedArchive *>(handle)->error = error;
    return error == codesign::kArchiveNoError;
}

static bool sign_note(void *handle, bool is_good)
{
    static_cast<TreeSign *>(handle)->error = is_good ? codesign::kArchiveNoError : codesign::kArchiveBadSignature;
    return is_good;
}

#define CALL extern "C" __attribute__((visibility("default")))

CALL void *norvarchive_init(const char *dest)
{
    auto *handle = dest != nullptr ? new (std::nothrow) SignedArchive : nullptr;
    if (handle != nullptr)
        handle->dest = dest;
    return handle;
}

CALL bool norvarchive_open_with_keytype(void *handle, const char *path, int key_type)
{
    return archive_note(
        handle, codesign::archive_open(static_cast<SignedArchive *>(handle), path, CODESIGN_KEY_FOLDER, key_type));
}

CALL bool norvarchive_extract_multiple(void *handle, const char *const *members, int flags)
{
    return archive_note(handle, codesign::archive_extract(static_cast<SignedArchive *>(handle), members, flags));
}

CALL bool norvarchive_extract_one(void *handle, const char *member, int flags)
{
    const char *const members[] = {member, nullptr};
    return norvarchive_extract_multiple(handle, members, flags);
}

CALL uint64_t norvarchive_get_filenum(void *handle)
{
    return static_cast<const SignedArchive *>(handle)->members.size();
}

CALL const char *const *norvarchive_get_filelist(void *handle)
{
    const auto *archive = static_cast<const SignedArchive *>(handle);
    return archive_note(handle, archive->file ? codesign::kArchiveNoError : codesign::kArchiveNotOpen)
               ? archive->names.data()
               : nullptr;
}

CALL void norvarchive_free(void *handle)
{
    delete static_cast<SignedArchive *>(handle);
}

CALL void *norvcodesign_init()
{
    return new (std::nothrow) TreeSign;
}

CALL bool norvcodesign_load_signature(void *handle, const char *path)
{
    auto *sign = static_cast<TreeSign *>(handle);
    sign->signatures.clear();
    std::string text;
    return sign_note(handle, codesign::file_read(path, kSignatureFileLimit, &text) &&
                                 codesign::tree_signature_parse(text, &sign->signatures));
}

CALL bool norvcodesign_verify(void *handle, int /*flags*/)
{
    const auto *sign = static_cast<const TreeSign *>(handle);
    return sign_note(handle, codesign::tree_is_signed(".", sign->signatures, CODESIGN_KEY_FOLDER));
}

CALL void norvcodesign_free(void *handle)
{
    delete static_cast<TreeSign *>(handle);
}

CALL bool is_tar(const char *path)
{
    return path != nullptr && codesign::file_is_tar(path);
}
