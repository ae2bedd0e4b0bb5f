#include "platform/codesign/manifest.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/text.h"

namespace codesign
{

static constexpr unsigned kModeBits = 07777;

bool path_is_clean(std::string_view path)
{
    if (path.empty() || path.find_first_of(std::string_view("\n\0", 2)) != path.npos)
        return false;
    for (;;) {
        const size_t slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        if (part.empty() || part == "." || part == "..")
            return false;
        if (slash == path.npos)
            return true;
        path.remove_prefix(slash + 1);
    }
}

std::string member_line(const Member &member)
{
    static constexpr const char *kWords[] = {"file ", "dir ", "link "};
    char mode[16];
    snprintf(mode, sizeof(mode), " %o ", member.mode);
    const std::string digest = member.kind == MemberKind::kFolder ? "-" : hex_of(member.digest);
    return kWords[static_cast<int>(member.kind)] + digest + " " + std::to_string(member.bytes) + mode + member.path +
           "\n";
}

std::string_view word_cut(std::string_view *text)
{
    const std::string_view word = text->substr(0, text->find(' '));
    text->remove_prefix(std::min(word.size() + 1, text->size()));
    return word;
}

bool member_parse(std::string_view line, Member *out)
{
    const std::string_view kind = word_cut(&line), digest = word_cut(&line), bytes = word_cut(&line),
                           mode = word_cut(&line);
    out->digest = {};
    if (kind == "dir" && digest == "-") {
        out->kind = MemberKind::kFolder;
    } else if (kind == "file" || kind == "link") {
        out->kind = kind == "file" ? MemberKind::kFile : MemberKind::kLink;
        std::string decoded;
        if (!hex_decode(digest, &decoded) || decoded.size() != out->digest.size())
            return false;
        memcpy(out->digest.data(), decoded.data(), decoded.size());
    } else {
        return false;
    }
    out->path = line;
    return text_number(bytes, &out->bytes) && text_number(mode, &out->mode, 8) && path_is_clean(out->path);
}

const Member *member_find(const std::vector<Member> &members, std::string_view path)
{
    const auto found =
        std::lower_bound(members.begin(), members.end(), path,
                         [](const Member &member, std::string_view wanted) { return member.path < wanted; });
    return found != members.end() && found->path == path ? &*found : nullptr;
}

static bool file_member_fill(int folder, const char *name, Member *out)
{
    const UniqueFd file(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    out->kind = MemberKind::kFile;
    return file && digest_read(file.get(), &out->digest, &out->bytes);
}

static bool link_member_fill(int folder, const char *name, Member *out)
{
    char target[PATH_MAX];
    const ssize_t length = readlinkat(folder, name, target, sizeof(target));
    if (length < 0)
        return false;
    out->kind = MemberKind::kLink;
    out->mode = 0;
    out->digest = digest_of({target, static_cast<size_t>(length)});
    return true;
}

// Lists the open folder `dir`, whose path below the top is `prefix`.
static bool folder_list(int dir, const std::string &prefix, const char *but_for, std::vector<Member> *out,
                        std::string *in_the_way)
{
    const UniqueDir entries(fdopendir(dir));
    if (!entries) {
        close(dir);
        return false;
    }
    while (const dirent *entry = readdir(entries.get())) {
        const char *name = entry->d_name;
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || (but_for != nullptr && strcmp(name, but_for) == 0))
            continue;
        Member member = {MemberKind::kFolder, {}, 0, 0, prefix + name};
        *in_the_way = member.path;
        struct stat status;
        if (fstatat(dir, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !path_is_clean(member.path))
            return false;
        member.mode = status.st_mode & kModeBits;
        const bool is_folder = S_ISDIR(status.st_mode);
        if (!is_folder && !(S_ISREG(status.st_mode)   ? file_member_fill(dir, name, &member)
                            : S_ISLNK(status.st_mode) ? link_member_fill(dir, name, &member)
                                                      : false))
            return false;
        out->push_back(member);
        if (!is_folder)
            continue;
        const int below = openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (below < 0 || !folder_list(below, member.path + "/", nullptr, out, in_the_way))
            return false;
    }
    return true;
}

bool tree_list(const std::string &folder, const char *but_for, std::vector<Member> *out, std::string *in_the_way)
{
    *in_the_way = folder;
    out->clear();
    const int top = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (top < 0 || !folder_list(top, "", but_for, out, in_the_way))
        return false;
    std::sort(out->begin(), out->end(), [](const Member &a, const Member &b) { return a.path < b.path; });
    return true;
}

std::string members_text(const std::vector<Member> &members)
{
    std::string text;
    for (const Member &member : members)
        text += member_line(member);
    return text;
}

} // namespace codesign
