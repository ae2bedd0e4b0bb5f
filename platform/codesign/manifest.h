// What a signature vouches for: the list of files with their digests, as text.
//
//   file <sha256> <bytes> <mode, octal> <path>
//   dir - 0 <mode, octal> <path>
//   link <sha256 of its target> 0 0 <path>
//
// One line each, sorted by path as bytes. Paths are relative, without "." and ".." and without a line feed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/codesign/digest.h"

namespace codesign
{

enum class MemberKind { kFile, kFolder, kLink };

struct Member {
    MemberKind kind;
    Digest digest; // zero for a folder
    uint64_t bytes;
    unsigned mode; // permission bits
    std::string path;
};

// Cuts a word that ends with a blank, or with the text, off it; the blank goes, too.
[[nodiscard]] std::string_view word_cut(std::string_view *text);

// Whether a path stays below where it starts.
[[nodiscard]] bool path_is_clean(std::string_view path);

[[nodiscard]] std::string member_line(const Member &member);
// Takes a line without its line feed apart. False when it is no such line.
[[nodiscard]] bool member_parse(std::string_view line, Member *out);

// The member at a path of a sorted list; NULL when there is none.
[[nodiscard]] const Member *member_find(const std::vector<Member> &members, std::string_view path);

// Lists all that lies below a folder but for one file at its top; NULL: all. False, with the path that is in the way,
// when something there is neither file, folder nor link, or cannot be read.
[[nodiscard]] bool tree_list(const std::string &folder, const char *but_for, std::vector<Member> *out,
                             std::string *in_the_way);

// All lines of a list.
[[nodiscard]] std::string members_text(const std::vector<Member> &members);

} // namespace codesign
