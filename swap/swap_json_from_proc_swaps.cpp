#include <cstdio>

#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"
#include "swap/swap_json.h"

static constexpr char kSeparators[] = " \t";

// An object of one line's values. A line with fewer values than names lacks the last of them.
static json_object *line_object(const NLIBSZLIST *names, const char *line, PNLIBSZLIST *values)
{
    UniqueJson object(json_object_new_object());
    NLIBCSzListReset(*values);
    if (!object || NLIBCStrTok(line, kSeparators, values) < 0)
        return fail(kErrOutOfMemory);
    for (int i = 0; i < names->nItem && i < (*values)->nItem; i++) {
        json_object *value = json_object_new_string(NLIBCSzListGet(*values, i));
        if (value == nullptr || json_object_object_add(object.get(), NLIBCSzListGet(names, i), value) != 0) {
            json_object_put(value);
            return fail(kErrOutOfMemory);
        }
    }
    return object.release();
}

json_object *swap_json_from_proc_swaps()
{
    const UniqueFile file(fopen("/proc/swaps", "re"));
    if (!file)
        return fail(kErrOpen);
    UniqueList names(NLIBCSzListAlloc(512)), values(NLIBCSzListAlloc(512));
    UniqueJson lines(json_object_new_array());
    if (!names || !values || !lines)
        return fail(kErrOutOfMemory);
    char line[4096];
    while (NLIBCFgets(line, sizeof(line), file.get()) != nullptr) {
        NLIBCStrTrimSpace(line, nullptr);
        if (names.get()->nItem == 0) {
            if (NLIBCStrTok(line, kSeparators, names.address()) < 0)
                return nullptr;
            continue;
        }
        json_object *object = line_object(names.get(), line, values.address());
        if (object == nullptr || json_object_array_add(lines.get(), object) != 0) {
            json_object_put(object);
            return fail(kErrOutOfMemory);
        }
    }
    return lines.release();
}
