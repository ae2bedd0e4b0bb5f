#include "lib/file.h"

#include "lib/file_line.h"
#include "lib/file_text.h"
#include "lib/report.h"
#include "lib/string.h"

// Adds the pair of a line. A line without one is passed over. Returns 0; -1.
static int pair_add(const char *line, PNLIBSZLIST *pair, PNLIBSZHASH *hash)
{
    NLIBCSzListReset(*pair);
    if (NLIBCStrSepPair(line, pair) != 0)
        return NLIBCErrGet() == kErrBadParameter ? 0 : -1;
    return NLIBCSzHashSetValue(hash, NLIBCSzListGet(*pair, 0), NLIBCSzListGet(*pair, 1)) < 0 ? -1 : 0;
}

int NLIBCFileGetSection(const char *file, const char *section, PNLIBSZHASH *hash)
{
    if (file == nullptr || section == nullptr || hash == nullptr || *hash == nullptr)
        return fail(kErrBadParameter);
    FileText text;
    if (file_text_load(file, &text) != 0)
        return -1;
    std::string_view rest = text.view();
    std::string_view line = line_next(&rest);
    while (!line.empty() && !line_is_section(line, section))
        line = line_next(&rest);
    if (line.empty()) {
        fail(kErrSectionMissing);
        return (*hash)->nPair;
    }
    UniqueList pair(NLIBCSzListAlloc(0));
    if (!pair)
        return -1;
    while (!rest.empty() && !rest.starts_with('[')) {
        char *start = text.bytes.get() + (rest.data() - text.bytes.get());
        line = line_next(&rest);
        if (line.ends_with('\n'))
            start[line.size() - 1] = '\0';
        if (pair_add(start, pair.address(), hash) != 0)
            return -1;
    }
    NLIBCErrSet(kErrNone, __FILE_NAME__, __LINE__);
    return (*hash)->nPair;
}
