#include "tests/support/box_files.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <linux/openat2.h>
#include <sstream>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/box_text.h"
#include "tests/support/wire.h"

namespace
{

constexpr std::int64_t kSmallBytes = 64 * 1024;

void complain(std::string_view what, std::string_view path)
{
    const int error = errno;
    ADD_FAILURE() << "sandbox: " << what << " " << path << ": " << strerror(error);
}

bool descriptor_write(int fd, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = write(fd, content.data(), content.size());
        if (count < 0)
            return false;
        content.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

// What tells whether a file has changed: of small files and symbolic links the content is a part.
std::string mark(int folder, const char *name, const struct stat &status)
{
    std::ostringstream mark;
    mark << status.st_mode << " " << status.st_uid << " " << status.st_gid;
    if (S_ISDIR(status.st_mode))
        return mark.str();
    mark << " " << status.st_ino << " " << status.st_size << " " << status.st_mtim.tv_sec << "."
         << status.st_mtim.tv_nsec << "\n";
    char target[4096];
    if (S_ISLNK(status.st_mode)) {
        const ssize_t length = readlinkat(folder, name, target, sizeof(target));
        mark.write(target, std::max<ssize_t>(length, 0));
    } else if (S_ISREG(status.st_mode) && status.st_size <= kSmallBytes) {
        const UniqueFd fd(openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        mark << (fd ? descriptor_read(fd.get()) : "");
    }
    return mark.str();
}

std::vector<std::string> names(int folder_fd)
{
    std::vector<std::string> names;
    const UniqueDir folder(fdopendir(folder_fd));
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr)
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

// What stands in every box: its own folder but for the volumes, and the numbered links of programs.
bool brought(const std::string &path)
{
    constexpr std::string_view kProc = "/proc/";
    if (path.starts_with(BOX_DIR "/"))
        return !path.starts_with(BOX_VOLUMES);
    return path.starts_with(kProc) && path.find_first_not_of("0123456789", kProc.size()) == path.npos;
}

// A folder that stands for a volume is no work of a program, but what is in it may be.
bool is_volume(const std::string &path)
{
    constexpr std::string_view kVolumes = BOX_VOLUMES "/";
    return path.starts_with(kVolumes) && path.find('/', kVolumes.size()) == path.npos;
}

void tree_add(int folder, const std::string &path, dev_t device, FileTree *tree)
{
    for (const std::string &name : names(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC))) {
        const std::string below = std::string(path).append("/").append(name);
        struct stat status;
        if (brought(below) || fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            status.st_dev != device)
            continue;
        if (!is_volume(below))
            tree->emplace(below, mark(folder, name.c_str(), status));
        if (!S_ISDIR(status.st_mode))
            continue;
        const UniqueFd next(openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
        if (next)
            tree_add(next.get(), below, device, tree);
    }
}

} // namespace

std::vector<std::string> tree_changes(const FileTree &before, const FileTree &after)
{
    FileTree all = before;
    all.insert(after.begin(), after.end());
    std::vector<std::string> changes;
    for (const auto &[path, mark] : all) {
        const auto old = before.find(path), now = after.find(path);
        if (now == after.end() || old == before.end())
            changes.push_back((now == after.end() ? "-" : "+") + path);
        else if (old->second != now->second)
            changes.push_back("~" + path);
    }
    return changes;
}

int BoxFiles::open(std::string_view path, int flags, mode_t mode) const
{
    const std::string text(path);
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC;
    how.mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? mode : 0;
    how.resolve = RESOLVE_IN_ROOT;
    return static_cast<int>(syscall(SYS_openat2, root_.get(), text.c_str(), &how, sizeof(how)));
}

std::string BoxFiles::outside(std::string_view path) const
{
    return "/proc/self/fd/" + std::to_string(root_.get()) + std::string(path);
}

UniqueFd BoxFiles::parent(std::string_view path, std::string *name) const
{
    const auto slash = path.rfind('/');
    if (path.empty() || path[0] != '/' || slash + 1 == path.size()) {
        errno = EINVAL;
        complain("not an absolute path of a file:", path);
        return UniqueFd();
    }
    *name = path.substr(slash + 1);
    const std::string_view folder = path.substr(0, slash == 0 ? 1 : slash);
    UniqueFd fd(open(folder, O_RDONLY | O_DIRECTORY));
    if (!fd && errno == ENOENT) {
        directory(folder, 0755);
        fd.reset(open(folder, O_RDONLY | O_DIRECTORY));
    }
    if (!fd)
        complain("cannot open", folder);
    return fd;
}

void BoxFiles::write(std::string_view path, std::string_view content, mode_t mode) const
{
    std::string name;
    if (!parent(path, &name))
        return;
    const UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC, mode));
    if (!fd || !descriptor_write(fd.get(), content) || fchmod(fd.get(), mode) != 0)
        complain("cannot write", path);
}

// Holes stay holes, so that the image of a disk costs what is on it.
static bool data_copy(int from, int to)
{
    const off_t size = lseek(from, 0, SEEK_END);
    if (size < 0 || ftruncate(to, size) != 0)
        return false;
    for (off_t at = 0; (at = lseek(from, at, SEEK_DATA)) >= 0;) {
        const off_t hole = lseek(from, at, SEEK_HOLE);
        if (lseek(to, at, SEEK_SET) < 0)
            return false;
        while (at < hole)
            if (sendfile(to, from, &at, static_cast<size_t>(hole - at)) <= 0)
                return false;
    }
    return errno == ENXIO; // no data up to the end
}

void BoxFiles::copy(const std::string &host_path, std::string_view path, mode_t mode) const
{
    std::string name;
    if (!parent(path, &name))
        return;
    const UniqueFd from(::open(host_path.c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd to(open(path, O_WRONLY | O_CREAT | O_TRUNC, mode));
    if (!data_copy(from.get(), to.get()) || fchmod(to.get(), mode) != 0)
        complain("cannot copy " + host_path + " to", path);
}

void BoxFiles::directory(std::string_view path, mode_t mode) const
{
    std::string name;
    const UniqueFd folder = path == "/" ? UniqueFd() : parent(path, &name);
    if (!folder)
        return;
    if (mkdirat(folder.get(), name.c_str(), mode) != 0 && errno != EEXIST)
        complain("cannot make", path);
    else if (fchmodat(folder.get(), name.c_str(), mode, 0) != 0)
        complain("cannot set the mode of", path);
}

void BoxFiles::symlink(std::string_view path, std::string_view target) const
{
    std::string name;
    const UniqueFd folder = parent(path, &name);
    if (folder && symlinkat(std::string(target).c_str(), folder.get(), name.c_str()) != 0)
        complain("cannot make the symbolic link", path);
}

void BoxFiles::link(std::string_view path, std::string_view existing) const
{
    std::string name;
    std::string existing_name;
    const UniqueFd folder = parent(path, &name);
    const UniqueFd existing_folder = parent(existing, &existing_name);
    if (!folder || !existing_folder)
        return;
    static_cast<void>(unlinkat(folder.get(), name.c_str(), 0));
    if (linkat(existing_folder.get(), existing_name.c_str(), folder.get(), name.c_str(), 0) != 0)
        complain("cannot link", path);
}

void BoxFiles::fifo(std::string_view path, mode_t mode) const
{
    std::string name;
    const UniqueFd folder = parent(path, &name);
    if (folder && mknodat(folder.get(), name.c_str(), S_IFIFO | mode, 0) != 0)
        complain("cannot make the pipe", path);
}

void BoxFiles::sparse(std::string_view path, std::uint64_t bytes) const
{
    write(path, "", 0660);
    const UniqueFd fd(open(path, O_WRONLY));
    if (!fd || ftruncate(fd.get(), static_cast<off_t>(bytes)) != 0)
        complain("cannot size", path);
}

void BoxFiles::remove(std::string_view path) const
{
    std::string name;
    const UniqueFd folder = parent(path, &name);
    std::error_code error;
    std::filesystem::remove_all("/proc/self/fd/" + std::to_string(folder.get()) + "/" + name, error);
    if (error) {
        errno = error.value();
        complain("cannot remove", path);
    }
}

bool BoxFiles::stat(std::string_view path, struct stat *status) const
{
    const UniqueFd fd(open(path, O_PATH | O_NOFOLLOW));
    return fd && fstat(fd.get(), status) == 0;
}

bool BoxFiles::read(std::string_view path, std::string *content) const
{
    const UniqueFd fd(open(path, O_RDONLY));
    if (!fd)
        return false;
    *content = descriptor_read(fd.get());
    return true;
}

std::string BoxFiles::link_target(std::string_view path) const
{
    const UniqueFd link(open(path, O_PATH | O_NOFOLLOW));
    char target[4096];
    const ssize_t length = readlinkat(link.get(), "", target, sizeof(target));
    return {target, static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

std::vector<std::string> BoxFiles::list(std::string_view path) const
{
    return names(open(path, O_RDONLY | O_DIRECTORY));
}

FileTree BoxFiles::tree() const
{
    FileTree tree;
    struct stat status;
    if (fstat(root_.get(), &status) == 0)
        tree_add(root_.get(), "", status.st_dev, &tree);
    return tree;
}
