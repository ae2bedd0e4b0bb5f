#include <charconv>
#include <cstdio>
#include <cstring>

#include "lib/proc.h"
#include "lib/system/system.h"
#include "lib/system/system_info.h"

static constexpr std::string_view kAlign8Models[] = {"ppc", "powerpc", "88f6281", "88f6282", "88f6180"};

// What this system's own database says.
static int own_align_get()
{
    FILE *output = NLIBCPopen("/usr/bin/pg_controldata", "r", "--dump-alignment", nullptr);
    if (output == nullptr)
        return -1;
    char line[64] = "";
    if (fgets(line, sizeof(line), output) == nullptr)
        line[0] = '\0';
    NLIBCPclose(output);
    int align = 0;
    const auto [stop, error] = std::from_chars(line, line + strlen(line), align);
    return error == std::errc() && align > 0 ? align : -1;
}

int system_max_align_get(const char *root, const char *model)
{
    if (root == nullptr && model == nullptr)
        return own_align_get();
    const int align = root != nullptr ? system_info_number(root, "pgsql_alignment") : -1;
    if (align > 0 || model == nullptr)
        return align;
    return model_begins(model, kAlign8Models) ? 8 : 4;
}
