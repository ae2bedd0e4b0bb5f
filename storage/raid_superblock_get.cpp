#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "lib/io.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "storage/raid_parts.h"

namespace
{

constexpr int kLineRoom = 1024; // a longer line counts as several

// A decimal number that `text` begins with; -1 when there is none.
long number_of(const char *text)
{
    if (!isdigit(static_cast<unsigned char>(*text)))
        return -1;
    const long number = strtol(text, nullptr, 10);
    return number > INT_MAX ? -1 : number;
}

// What takes the value of a key. Returns 0; -1 with 0x4000 when the value must not look like that.
using Take = int(const char *value, RaidSuperblock *superblock);

int version_take(const char *value, RaidSuperblock *superblock)
{
    const char *dot = strchr(value, '.');
    if (dot == nullptr) {
        NORV_LOG(LOG_DEBUG, "bad version format: '%s'.", value);
        return fail(kErrBadFormat);
    }
    superblock->major = atoi(value);
    superblock->minor = atoi(dot + 1);
    return 0;
}

int uuid_take(const char *value, RaidSuperblock *superblock)
{
    const std::string_view text(value);
    text_cut(superblock->uuid, text.substr(0, text.find(" ("))); // "(local to host ...)"
    return 0;
}

int device_take(const char *value, RaidSuperblock *superblock)
{
    const long number = number_of(value);
    if (number < 0) {
        NORV_LOG(LOG_DEBUG, "Failed to parse '%s'", value);
        return fail(kErrBadFormat);
    }
    snprintf(superblock->device, sizeof(superblock->device), "/dev/md%ld", number);
    return 0;
}

int name_take(const char *value, RaidSuperblock *superblock)
{
    const char *colon = strchr(value, ':');
    if (colon != nullptr)
        text_cut(superblock->hostName, text_strip({value, static_cast<size_t>(colon - value)}));
    return device_take(colon == nullptr ? value : colon + 1, superblock);
}

int level_take(const char *value, RaidSuperblock *superblock)
{
    superblock->level = raid_level_of_word(value);
    return 0;
}

int devices_take(const char *value, RaidSuperblock *superblock)
{
    superblock->raidDevices = atoi(value);
    return 0;
}

int role_take(const char *value, RaidSuperblock *superblock)
{
    static constexpr char kReplacement[] = "Replacement device";
    superblock->deviceOrder = -1;
    if (sscanf(value, "Active device %d", &superblock->deviceOrder) == 1 || strcmp(value, "spare") == 0)
        return 0;
    if (strncmp(value, kReplacement, strlen(kReplacement)) == 0)
        superblock->deviceOrder = -2;
    else
        NORV_LOG(LOG_DEBUG, "bad device order format: '%s'.", value);
    return 0;
}

int events_take(const char *value, RaidSuperblock *superblock)
{
    superblock->events = strtoull(value, nullptr, 10);
    return 0;
}

// Metadata 1.x and 0.90 have lines of their own for three of the facts.
struct KeyRow {
    const char *key;
    Take *take;
};
constexpr KeyRow kKeys[] = {
    {"Version", version_take},  {"Array UUID", uuid_take},      {"UUID", uuid_take},
    {"Name", name_take},        {"Raid Level", level_take},     {"Preferred Minor", device_take},
    {"Device Role", role_take}, {"Raid Devices", devices_take}, {"Events", events_take},
};

int line_parse(char *line, RaidSuperblock *superblock)
{
    line[strcspn(line, "\n")] = '\0';
    char *value = strchr(line, ':');
    if (value == nullptr) {
        sscanf(line, "this %d", &superblock->deviceOrder); // this member's line of the table that 0.90 has
        return 0;
    }
    *value++ = '\0';
    if (NLIBCStrTrimSpace(line, nullptr) < 0 || NLIBCStrTrimSpace(value, nullptr) < 0) {
        NORV_LOG(LOG_DEBUG, "Failed to trim key:'%s' or val: '%s'.", line, value);
        return -1;
    }
    for (const KeyRow &row : kKeys)
        if (strcmp(row.key, line) == 0)
            return row.take(value, superblock);
    return 0;
}

} // namespace

int raid_superblock_parse(FILE *listing, RaidSuperblock *superblock)
{
    *superblock = {};
    superblock->deviceOrder = -1;
    char line[kLineRoom];
    while (NLIBCFgets(line, sizeof(line), listing) != nullptr)
        if (line_parse(line, superblock) != 0)
            return -1;
    return superblock->uuid[0] != '\0' ? 1 : 0;
}

int raid_superblock_get(const char *partition, RaidSuperblock *superblock)
{
    if (partition == nullptr || superblock == nullptr)
        return fail(kErrBadParameter);
    FILE *listing = NLIBCPopen(kMdadm, "r", "-E", partition, nullptr);
    if (listing == nullptr) {
        NORV_LOG(LOG_DEBUG, "Fail to do [%s -E %s]", kMdadm, partition);
        return -1;
    }
    const int found = raid_superblock_parse(listing, superblock);
    NLIBCPclose(listing);
    return found;
}
