#include "net/net.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/net_text.h"

static constexpr char kDevPath[] = "/proc/net/dev";
static constexpr int kInterfacesRead = 256;

namespace
{

bool is_digit(char c)
{
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

// Natural order: eth2 before eth10. What stands behind the first digits only tells equal numbers apart.
bool name_precedes(const NET_STAT &left, const NET_STAT &right)
{
    const char *a = left.szName, *b = right.szName;
    size_t at = 0;
    while (at < sizeof(left.szName) && a[at] == b[at] && a[at] != '\0' && !is_digit(a[at]))
        at++;
    if (at == sizeof(left.szName))
        return false;
    if (is_digit(a[at]) && is_digit(b[at])) {
        const unsigned long left_number = strtoul(a + at, nullptr, 10), right_number = strtoul(b + at, nullptr, 10);
        if (left_number != right_number)
            return left_number < right_number;
    }
    return strncmp(a + at, b + at, sizeof(left.szName) - at) < 0;
}

bool name_is_hidden(const char *name)
{
    static constexpr const char *kPrefixes[] = {"tap", "docker", "dnos"};
    if (strstr(name, "mon.") != nullptr)
        return true;
    return std::any_of(std::begin(kPrefixes), std::end(kPrefixes),
                       [=](const char *prefix) { return strncmp(name, prefix, strlen(prefix)) == 0; });
}

// Cuts one line at its colon. Returns the counters behind it, NULL when the line has no colon.
char *line_cut(char *line, char **name)
{
    char *colon = strchr(line, ':');
    if (colon == nullptr)
        return nullptr;
    *colon = '\0';
    *name = line + strspn(line, " ");
    return colon + 1;
}

} // namespace

NET_STAT *NetStatInit(int count)
{
    if (count <= 0)
        return fail(kErrBadParameter);
    auto *array = static_cast<NET_STAT *>(calloc(static_cast<size_t>(count), sizeof(NET_STAT)));
    if (array == nullptr)
        return fail(kErrOutOfMemory);
    for (int i = 0; i < count; i++)
        array[i].nVersion = 1;
    return array;
}

void NetStatFree(NET_STAT *array)
{
    free(array);
}

int net_stat_read(FILE *file, NET_STAT *array, int count)
{
    char line[512];
    for (int heading = 0; heading < 2; heading++)
        if (fgets(line, sizeof(line), file) == nullptr)
            return fail(kErrRead);
    int found = 0;
    while (found < count && fgets(line, sizeof(line), file) != nullptr) {
        char *name = nullptr;
        const char *counters = line_cut(line, &name);
        if (counters == nullptr)
            break;
        if (name_is_hidden(name))
            continue;
        NET_STAT *stat = &array[found++];
        *stat = {};
        stat->nVersion = 1;
        text_cut(stat->szName, name);
        sscanf(counters, "%lld %lld %*s %*s %*s %*s %*s %*s %lld %lld", &stat->llRxBytes, &stat->llRxPackets,
               &stat->llTxBytes, &stat->llTxPackets);
    }
    if (ferror(file) != 0)
        return fail(kErrRead);
    std::sort(array, array + found, name_precedes);
    return found;
}

int NetStatGetAll(NET_STAT *array, int count)
{
    if (array == nullptr || count <= 0)
        return fail(kErrBadParameter);
    const UniqueFile file(fopen(kDevPath, "re"));
    return file ? net_stat_read(file.get(), array, count) : fail(kErrOpen);
}

int NetStatGet(const char *name, NET_STAT *stat)
{
    if (name == nullptr || stat == nullptr)
        return fail(kErrBadParameter);
    NET_STAT all[kInterfacesRead];
    const int count = NetStatGetAll(all, kInterfacesRead);
    for (int i = 0; i < count; i++) {
        if (strcmp(all[i].szName, name) == 0) {
            *stat = all[i];
            return 0;
        }
    }
    return fail(kErrNetwork);
}
