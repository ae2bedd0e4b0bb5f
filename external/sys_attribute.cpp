#include "external/sys_attribute.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/text.h"

bool sys_attribute_read(const char *path, char *text, size_t size)
{
    text[0] = '\0';
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file)
        return false;
    char bytes[256];
    const ssize_t count = read(file.get(), bytes, sizeof(bytes));
    if (count <= 0)
        return false;
    std::string_view line(bytes, strnlen(bytes, static_cast<size_t>(count)));
    line = text_strip(line.substr(0, line.find('\n'))).substr(0, size - 1);
    text[line.copy(text, size)] = '\0';
    return !line.empty();
}

long sys_attribute_hex(const char *folder, const char *name)
{
    char path[PATH_MAX], text[32];
    const int length = snprintf(path, sizeof(path), "%s/%s", folder, name);
    if (length >= static_cast<int>(sizeof(path)) || !sys_attribute_read(path, text, sizeof(text)))
        return -1;
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 16);
    return *end == '\0' && value <= LONG_MAX ? static_cast<long>(value) : -1;
}

std::string_view sys_path_component(std::string_view path, std::string_view prefix)
{
    while (!path.empty()) {
        const size_t slash = path.rfind('/');
        const std::string_view last = path.substr(slash + 1); // npos + 1 is 0
        if (last.starts_with(prefix))
            return last;
        path = path.substr(0, slash == path.npos ? 0 : slash);
    }
    return {};
}
