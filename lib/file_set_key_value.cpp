#include "lib/file.h"

#include <cstring>
#include <fcntl.h>

#include "lib/file_line.h"
#include "lib/file_rewrite.h"
#include "lib/report.h"

static constexpr RewriteRules kRules = {kErrWrite, kErrWrite, false};
static constexpr size_t kAppendFormatRoom = 4095; // with the newline that may go first, and the NUL

namespace
{

struct Pair {
    const char *key, *value, *format;
};

} // namespace

// An existing file that cannot be opened for reading, but for writing, loses what it holds.
static int file_create(const char *file, const Pair &pair)
{
    UniqueFile out(fopen(file, "we"));
    if (!out)
        return fail(kErrOpen);
    if (fprintf(out.get(), pair.format, pair.key, pair.value) < 0 || fflush(out.get()) != 0 ||
        fsync(fileno(out.get())) != 0 || fclose(out.release()) != 0)
        return fail(kErrWrite);
    return 1;
}

static int pair_append(std::string_view text, const Pair &pair, FILE *out)
{
    const bool lf_missing = !text.empty() && !text.ends_with('\n');
    if (strlen(pair.format) + (lf_missing ? 1 : 0) >= kAppendFormatRoom)
        return fail(kErrBufferTooSmall);
    if (lf_missing && fputc('\n', out) == EOF)
        return fail(kErrWrite);
    return fprintf(out, pair.format, pair.key, pair.value) < 0 ? fail(kErrWrite) : 0;
}

// Writes `text` with the pair in the place of its first line, and without its later ones.
static int pair_place(std::string_view text, const Pair &pair, FILE *out)
{
    bool placed = false;
    for (std::string_view rest = text; !rest.empty();) {
        const char *kept = rest.data();
        const std::string_view line = key_line_next(&rest, pair.key);
        const size_t kept_bytes = static_cast<size_t>(line.data() - kept);
        if (fwrite(kept, 1, kept_bytes, out) != kept_bytes)
            return fail(kErrWrite);
        if (line.empty() || placed)
            continue;
        if (fprintf(out, pair.format, pair.key, pair.value) < 0)
            return fail(kErrWrite);
        placed = true;
    }
    return placed ? 0 : pair_append(text, pair, out);
}

int NLIBCFileSetKeyValue(const char *file, const char *key, const char *value, const char *format)
{
    if (file == nullptr || key == nullptr || value == nullptr)
        return fail(kErrBadParameter);
    const Pair pair = {key, value, format == nullptr ? kDefaultFormat : format};
    const UniqueFd source(open(file, O_RDONLY | O_CLOEXEC));
    if (!source)
        return file_create(file, pair);
    Rewrite rewrite;
    const size_t added_bytes = strlen(key) + strlen(value) + strlen(pair.format) + 1;
    if (rewrite_begin(&rewrite, source.get(), file, added_bytes, kRules) != 0 ||
        pair_place(rewrite.old_text.view(), pair, rewrite.copy.get()) != 0 ||
        rewrite_commit(&rewrite, file, kRules) != 0)
        return -1;
    return 1;
}
