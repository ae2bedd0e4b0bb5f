#include "lib/file.h"

#include "lib/file_line.h"
#include "lib/file_text.h"
#include "lib/report.h"

static constexpr size_t kHeaderRoom = 1024; // with the NUL

int NLIBCFileEnumSection(const char *file, PNLIBSZLIST *list)
{
    if (file == nullptr || list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    FileText text;
    if (file_text_load(file, &text) != 0)
        return -1;
    for (std::string_view rest = text.view(); !rest.empty();) {
        const std::string_view line = line_next(&rest);
        if (!line_is_section_header(line))
            continue;
        if (line.size() >= kHeaderRoom)
            return fail(kErrBufferTooSmall);
        char name[kHeaderRoom];
        name[line.substr(1, line.rfind(']') - 1).copy(name, sizeof(name))] = '\0';
        if (NLIBCSzListPush(list, name) < 0)
            return -1;
    }
    return (*list)->nItem;
}
