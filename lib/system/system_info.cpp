#include "lib/system/system_info.h"

#include <cstdio>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/io.h"
#include "lib/text.h"

bool system_info_read(const char *root, const char *name, SystemInfo *out)
{
    out->line[0] = '\0';
    const int length = snprintf(out->path, sizeof(out->path), "%s/.system_info/%s", root, name);
    if (static_cast<size_t>(length) >= sizeof(out->path))
        return false;
    const UniqueFile file(fopen(out->path, "re"));
    if (!file || NLIBCFgets(out->line, sizeof(out->line), file.get()) == nullptr)
        return false;
    out->line[strcspn(out->line, "\n")] = '\0';
    return true;
}

int system_info_number(const char *root, const char *name)
{
    SystemInfo info;
    if (!system_info_read(root, name, &info))
        return -1;
    int number = 0;
    return text_number(info.line, &number) && number > 0 ? number : -1;
}

bool model_begins(std::string_view model, std::span<const std::string_view> words)
{
    for (const std::string_view word : words)
        if (model.starts_with(word))
            return true;
    return false;
}
