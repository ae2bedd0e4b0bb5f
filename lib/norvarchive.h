// Signed archives: what the signature and archive library does, with a log line before and after each operation.
#pragma once

#include <cstdint>

#include "autocleanup/unique.h"

struct NORVInstNorvArchive; // an open archive and its name

enum NorvArchiveType { kNorvArchiveSystem, kNorvArchiveNano, kNorvArchiveSecurityJson, kNorvArchiveSmallPatch };

// Results of these operations.
enum NorvArchiveResult : int { kNorvArchiveGood = 0, kNorvArchiveFailed = 1, kNorvArchiveBadSignature = 2 };

// Opens an archive and checks its signature with the key of its type.
//   dest  folder that extraction fills; SecurityJson extracts nowhere and takes any
//   out   NULL: the archive is checked and closed
// Returns a NorvArchiveResult; `*out` is set on success alone.
[[nodiscard]] int NorvArchiveOpen(NorvArchiveType type, const char *path, const char *dest, NORVInstNorvArchive **out);

// Extracts one member; NULL: all. Returns a NorvArchiveResult.
[[nodiscard]] int NorvArchiveExtract(NORVInstNorvArchive *archive, const char *member);
// Extracts the members of a list that NULL ends.
[[nodiscard]] int NorvArchiveExtractMultiple(NORVInstNorvArchive *archive, const char *const *members);

// The names of all members, NULL-ended and the archive's own, and how many they are; NULL on failure.
[[nodiscard]] const char *const *NorvArchiveGetFileList(NORVInstNorvArchive *archive, uint64_t *count);

void NorvArchiveFree(NORVInstNorvArchive *archive); // NULL is no archive

using UniqueNorvArchive = Unique<NORVInstNorvArchive *, nullptr, NorvArchiveFree>;

// Opens, extracts one member (NULL: all) and frees. Returns a NorvArchiveResult.
[[nodiscard]] int NorvArchiveExtractFrom(NorvArchiveType type, const char *path, const char *dest, const char *member);

// The same for the one type that this system installs from.
[[nodiscard]] inline int NorvArchiveOpenSystem(const char *path, const char *dest, NORVInstNorvArchive **out)
{
    return NorvArchiveOpen(kNorvArchiveSystem, path, dest, out);
}
[[nodiscard]] inline int NorvArchiveExtractSystem(const char *path, const char *dest)
{
    return NorvArchiveExtractFrom(kNorvArchiveSystem, path, dest, nullptr);
}
[[nodiscard]] inline int NorvArchiveExtractSystemMember(const char *path, const char *dest, const char *member)
{
    return NorvArchiveExtractFrom(kNorvArchiveSystem, path, dest, member);
}
