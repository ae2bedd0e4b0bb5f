#include "lib/file.h"

#include <cstring>
#include <fcntl.h>

#include "lib/file_line.h"
#include "lib/file_rewrite.h"
#include "lib/report.h"

static constexpr RewriteRules kRules = {kErrRead, kErrQuota, true};

namespace
{

struct Section {
    const char *name;
    const char *new_name;
    const NLIBSZHASH *hash; // NULL: the section goes
    const char *format;
};

} // namespace

// Writes `text` with the new section in the place of the old, whose comments stay. Returns 1; 0 when there is none; -1.
static int section_place(std::string_view text, const Section &section, FILE *out)
{
    bool found = false;
    bool inside = false;
    for (;;) {
        const std::string_view line = line_next(&text);
        if (line.empty())
            return found ? 1 : 0;
        if (line_is_section(line, section.name)) {
            found = inside = true;
            if (section.hash != nullptr && NLIBCHashToFile(out, section.new_name, section.hash, section.format) != 0)
                return -1;
            continue;
        }
        inside = inside && !line_is_section_header(line);
        if (inside && !line_is_comment(line))
            continue;
        if (fwrite(line.data(), 1, line.size(), out) != line.size())
            return fail(kErrWrite);
    }
}

static size_t section_bytes(const Section &section)
{
    if (section.hash == nullptr)
        return 0;
    const size_t pool_bytes = static_cast<size_t>(section.hash->cbPool - section.hash->cbFree);
    return strlen("[]\n") + strlen(section.new_name) + pool_bytes +
           static_cast<size_t>(section.hash->nPair) * strlen(section.format);
}

static int section_rewrite(const char *file, const Section &section)
{
    const UniqueFd source(open(file, O_RDONLY | O_CLOEXEC));
    if (!source)
        return fail(kErrOpen);
    Rewrite rewrite;
    if (rewrite_begin(&rewrite, source.get(), file, section_bytes(section), kRules) != 0)
        return -1;
    const int placed = section_place(rewrite.old_text.view(), section, rewrite.copy.get());
    if (placed < 0 || rewrite_commit(&rewrite, file, kRules) != 0)
        return -1;
    if (placed == 0)
        fail(kErrKeyMissing);
    return placed;
}

int NLIBCFileSetSection(const char *file, const char *section, const char *new_name, PNLIBSZHASH hash,
                        const char *format)
{
    if (file == nullptr || section == nullptr || hash == nullptr)
        return fail(kErrBadParameter);
    return section_rewrite(
        file, {section, new_name == nullptr ? section : new_name, hash, format == nullptr ? kDefaultFormat : format});
}

int NLIBCFileRemoveSection(const char *file, const char *section)
{
    if (file == nullptr || section == nullptr)
        return fail(kErrBadParameter);
    return section_rewrite(file, {section, section, nullptr, nullptr});
}
