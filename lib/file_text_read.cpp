#include "lib/file_text.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "lib/report.h"

static constexpr size_t kLeastRoom = 4096;

bool file_text_grow(FileText *text, size_t room)
{
    char *bytes = text->bytes.release();
    char *grown = static_cast<char *>(realloc(bytes, room));
    text->bytes.reset(grown == nullptr ? bytes : grown);
    if (grown != nullptr)
        text->room = room;
    return grown != nullptr;
}

int file_read_on(int fd, char *bytes, size_t room, size_t *size)
{
    while (*size < room) {
        const ssize_t count = read(fd, bytes + *size, room - *size);
        if (count <= 0)
            return count == 0 ? 0 : -1;
        *size += static_cast<size_t>(count);
    }
    return 0;
}

int file_text_read(int fd, std::string_view begun, size_t expected_bytes, FileText *text)
{
    // One byte more than expected, so that the end shows without growing.
    if (!file_text_grow(text, std::max({expected_bytes + 1, begun.size() * 2, kLeastRoom})))
        return fail(kErrOutOfMemory);
    text->size = begun.copy(text->bytes.get(), begun.size());
    for (;;) {
        if (file_read_on(fd, text->bytes.get(), text->room, &text->size) != 0)
            return fail(kErrRead);
        if (text->size < text->room) {
            text->bytes.get()[text->size] = '\0';
            return 0;
        }
        if (!file_text_grow(text, text->room * 2))
            return fail(kErrOutOfMemory);
    }
}

int file_text_load(const char *path, FileText *text)
{
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return fail(kErrOpen);
    return file_text_read(fd.get(), "", 0, text);
}
