// A web request for code in this process: bytes on standard input and what the environment says of them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

class FormInput
{
  public:
    FormInput() : before_(dup(STDIN_FILENO)) {}
    FormInput(const FormInput &) = delete;
    FormInput &operator=(const FormInput &) = delete;
    ~FormInput()
    {
        put(before_);
        for (const char *name : {"REQUEST_METHOD", "CONTENT_LENGTH", "CONTENT_TYPE", "QUERY_STRING", "HTTP_REFERER"})
            unsetenv(name);
    }

    // All at once, then its end.
    static void bytes(std::string_view text)
    {
        const int file = memfd_create("form", MFD_CLOEXEC);
        write_or_die(file, text);
        lseek(file, 0, SEEK_SET);
        put(file);
    }
    // Each piece as a read of its own, those above a page as several, then the end. At most 250 pages and pieces.
    static void pieces(const std::vector<std::string_view> &pieces)
    {
        int ends[2];
        if (pipe2(ends, O_DIRECT | O_CLOEXEC) != 0 || fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 0)
            die("pipe");
        for (const std::string_view piece : pieces)
            write_or_die(ends[1], piece);
        close(ends[1]);
        put(ends[0]);
    }

  private:
    int before_;

    static void die(const char *what)
    {
        perror(what);
        abort();
    }
    static void write_or_die(int fd, std::string_view text)
    {
        if (!text.empty() && write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            die("write");
    }
    static void put(int fd)
    {
        if (dup2(fd, STDIN_FILENO) != STDIN_FILENO)
            die("standard input");
        close(fd);
    }
};
