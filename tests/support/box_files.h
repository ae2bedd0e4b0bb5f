// The files of a box, reached from outside through its root directory. Symbolic links lead nowhere else.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "autocleanup/unique.h"

using FileTree = std::map<std::string, std::string>; // by path: what tells whether a file has changed

// "+/new" "-/gone" "~/changed", sorted by path
[[nodiscard]] std::vector<std::string> tree_changes(const FileTree &before, const FileTree &after);

class BoxFiles
{
  public:
    explicit BoxFiles(int root) : root_(root) {} // owns the descriptor

    // As the system call, with the box's root as root: a descriptor, or -1 with errno.
    [[nodiscard]] int open(std::string_view path, int flags, mode_t mode = 0) const;
    // A path by which this process reaches a file of the box whose folders are no symbolic links.
    [[nodiscard]] std::string outside(std::string_view path) const;

    // These make parents, and fail the test when they cannot do their work.
    void write(std::string_view path, std::string_view content, mode_t mode) const;
    void copy(const std::string &host_path, std::string_view path, mode_t mode) const;
    void directory(std::string_view path, mode_t mode) const;
    void symlink(std::string_view path, std::string_view target) const;
    void link(std::string_view path, std::string_view existing) const; // in place of what is there
    void fifo(std::string_view path, mode_t mode) const;
    void sparse(std::string_view path, std::uint64_t bytes) const;
    void remove(std::string_view path) const;

    [[nodiscard]] bool stat(std::string_view path, struct stat *status) const; // of a link itself
    // Content, or false with errno.
    [[nodiscard]] bool read(std::string_view path, std::string *content) const;
    // Where a symbolic link leads, "" when it is none.
    [[nodiscard]] std::string link_target(std::string_view path) const;
    [[nodiscard]] std::vector<std::string> list(std::string_view path) const; // sorted; nothing when there is none
    [[nodiscard]] FileTree tree() const;                                      // without what the box itself brings

  private:
    // The folder of a path, made when missing, and the last name.
    [[nodiscard]] UniqueFd parent(std::string_view path, std::string *name) const;

    UniqueFd root_;
};
