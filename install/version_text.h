// One value of a VERSION file or model description, as text.
#pragma once

#include "lib/file.h"

struct VersionText {
    bool is_there;
    char value[256]; // empty when it is not, or does not fit
};

[[nodiscard]] inline VersionText version_text_read(const char *path, const char *key)
{
    VersionText text = {};
    text.is_there = NLIBCFileGetKeyValue(path, key, text.value, sizeof(text.value), 0) > 0;
    if (!text.is_there)
        text.value[0] = '\0';
    return text;
}
