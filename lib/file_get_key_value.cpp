#include "lib/file.h"

#include <climits>
#include <fcntl.h>
#include <unistd.h>

#include "lib/file_line.h"
#include "lib/file_text.h"
#include "lib/report.h"

static constexpr int kLastWins = 1;
static constexpr size_t kHeadBytes = 16384; // the usual file ends well within

// Copies the first or last value of `key`, if it fits. Returns its length with the NUL; 0 when there is none.
static size_t value_copy(std::string_view text, std::string_view key, int flags, char *buf, int size)
{
    size_t length = 0;
    bool copying = buf != nullptr && size > 0;
    for (;;) {
        const std::string_view line = key_line_next(&text, key);
        if (line.empty())
            return length;
        const KeyLine pair = key_line_split(line);
        if (pair.has_value)
            length = pair.value.size() + 1;
        else
            copying = false; // for all later lines too
        if (pair.has_value && copying && length <= static_cast<size_t>(size))
            buf[pair.value.copy(buf, length - 1)] = '\0';
        if ((flags & kLastWins) == 0)
            return length;
    }
}

// A file that stops being readable ends there.
int NLIBCFileGetKeyValue(const char *file, const char *key, char *buf, int size, int flags)
{
    if (file == nullptr || key == nullptr || flags < 0 || (buf == nullptr && size != 0))
        return fail(kErrBadParameter);
    const UniqueFd fd(open(file, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return fail(kErrOpen);
    char head[kHeadBytes];
    const ssize_t first = read(fd.get(), head, sizeof(head));
    size_t head_bytes = first > 0 ? static_cast<size_t>(first) : 0;
    std::string_view text(head, head_bytes);
    FileText whole;
    // A complete line of the key settles the matter after one read. Everything else shows only at the file's end.
    std::string_view rest = text;
    const std::string_view line = key_line_next(&rest, key);
    if (line.ends_with('\n') && (flags & kLastWins) == 0) {
        text = line;
    } else {
        static_cast<void>(file_read_on(fd.get(), head, sizeof(head), &head_bytes));
        text = {head, head_bytes};
        if (head_bytes == sizeof(head)) {
            if (file_text_read(fd.get(), text, 0, &whole) != 0 && NLIBCErrGet() == kErrOutOfMemory)
                return -1;
            text = whole.view();
        }
    }
    const size_t length = value_copy(text, key, flags, buf, size);
    if (length > INT_MAX || (buf != nullptr && static_cast<int>(length) > size))
        return fail(kErrBufferTooSmall);
    if (length == 0)
        fail(kErrKeyMissing);
    return static_cast<int>(length);
}
