// The signed archive: a head of text, and a compressed tar.
//
//   NORVPAT1
//   signature <key type> <ECDSA signature of the manifest: DER, in hexadecimal>      one line for each key type
//   manifest <bytes>
//   payload <sha256> <bytes>                                                         the manifest: its first line
//   file <sha256> <bytes> <mode> <path>                                              and one for each member
//   (the payload: tar, compressed by gzip, xz or zstd, up to the end of the file)
//
// A signature vouches for the manifest, and the manifest for the payload and for each member of it.
#pragma once

#include <string>
#include <vector>

#include "autocleanup/unique.h"
#include "platform/codesign/manifest.h"

struct archive; // of libarchive

namespace codesign
{

inline constexpr char kArchiveMagic[] = "NORVPAT1\n";

// Codes of a handle. All that is odd about an archive is a bad signature.
enum ArchiveError : int32_t {
    kArchiveNoError = 0,
    kArchiveCannotOpen = 2,
    kArchiveNotOpen = 3,
    kArchiveNoMember = 5,
    kArchiveNoFolder = 6,
    kArchiveCannotWrite = 7,
    kArchiveBadSignature = 14,
};

struct SignedArchive {
    int32_t error = 0; // first, as callers expect
    std::string dest;
    UniqueFd file;
    uint64_t payload_at = 0; // bytes from the start of the file
    std::vector<Member> members;
    std::vector<const char *> names; // of the members, NULL-ended
};

struct SignatureLine {
    int key_type;
    std::string signature; // DER
};

struct ArchiveHead {
    std::vector<SignatureLine> signatures;
    std::string manifest;
    Digest payload_digest;
    uint64_t payload_bytes;
    std::vector<Member> members;
    uint64_t payload_at;
};

// The signature lines of a head, one after the other.
[[nodiscard]] std::string signatures_text(const std::vector<SignatureLine> &signatures);
// Cuts them off the text, up to the first line that is none. False when one is malformed or there are too many.
[[nodiscard]] bool signatures_parse(std::string_view *text, std::vector<SignatureLine> *out);

// Reads and checks the form of the head. `bytes` is the beginning of an archive, or all of it. False when it is none,
// or is cut.
[[nodiscard]] bool head_parse(std::string_view bytes, ArchiveHead *out);

// The head as text, payload not included. Its member lines are those of `members`, which are sorted.
[[nodiscard]] std::string manifest_text(const Digest &payload_digest, uint64_t payload_bytes,
                                        const std::vector<Member> &members);
[[nodiscard]] std::string head_text(const std::vector<SignatureLine> &signatures, std::string_view manifest);

// Opens an archive, checks its signature for the key type and that it is whole. Returns an ArchiveError.
[[nodiscard]] int32_t archive_open(SignedArchive *archive, const std::string &path, const std::string &key_folder,
                                   int key_type);

enum ExtractFlag : int { kExtractModes = 1, kExtractReplace = 4 };

// Extracts members into the archive's folder; `wanted` NULL: all, else NULL-ended names. A member that is not what the
// manifest says does not stay. Returns an ArchiveError.
[[nodiscard]] int32_t archive_extract(SignedArchive *from, const char *const *wanted, int flags);

// Lets libarchive read a tar, plain or compressed as a payload may be, from where the file stands.
[[nodiscard]] bool tar_open(struct archive *reader, int file);

// Whether a file is a tar: its first block has the mark of one.
[[nodiscard]] bool file_is_tar(const char *path);

} // namespace codesign
