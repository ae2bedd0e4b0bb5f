// The checksum list of a folder: a text file in it that names files with their checksum, size and a spot check.
//
// A line has five fields between blanks or tabs: crc and size as /usr/bin/cksum -o 3 prints them, the path below the
// folder, the offset of the spot check and its value. The list ends with "# Norvcksum" and three decimal totals: of the
// sizes, of the offsets and of the spot values. Files that no line names are not looked at.
#pragma once

inline constexpr char kChecksumListName[] = "checksum.norv";

// What a check says of a list. Values are those of an error number in the upper byte.
enum ChecksumResult : int {
    kChecksumGood = 0,
    kChecksumOpen = 0x0900,     // the list, a file of it or the tool's output cannot be opened
    kChecksumRead = 0x0a00,     // fewer bytes at the spot than the file's size promised
    kChecksumWrite = 0x0b00,    // the temporary file cannot be written on
    kChecksumSeek = 0x2600,     // the spot cannot be reached
    kChecksumStat = 0x2700,     // lstat failed
    kChecksumNoFolder = 0x3100, // no folder was given
    kChecksumPosition = 0x3200, // the spot lies before the file
    kChecksumBad = 0x3800,      // malformed, mismatching or missing data
    kChecksumTool = 0x8100,     // the tool failed, or its output has no place
};

// Checks a folder against its list. With `strict` a list without its last line, or cut in its last data line, is bad;
// without, it is good as far as it goes, if that is one file at least. Uses /tmp/cksum.tmp: one check at a time.
[[nodiscard]] int CheckDirChecksum(const char *dir, int strict);

// One file's spot check.
struct ChecksumSpot {
    long long size;  // bytes; 0 for a device or pipe
    long long value; // sum of four bytes at the spot, its place in a symbolic link, or a fixed word
};
// Computes it for the spot at `offset` - size of the file; a negative `offset` chooses a spot at random. A spot less
// than four bytes before the file's end moves forward. Returns a ChecksumResult.
[[nodiscard]] int checksum_spot(const char *path, long long offset, ChecksumSpot *out);
