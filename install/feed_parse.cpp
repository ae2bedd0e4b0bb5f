#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "install/feed.h"
#include "install/version_text.h"
#include "lib/file_line.h"
#include "lib/report.h"
#include "lib/text.h"

namespace
{

struct FeedItem {
    char major[64], minor[64], phase[64], build[64], date[64];
    char required_major[64], required_minor[64], required_phase[64], required_build[64], required_date[64];
    char unique[256], link[1024], checksum[256];
};

struct FeedTag {
    std::string_view name;
    uint16_t member, room; // in the item; room 0: not kept
};
#define IN_ITEM(name) offsetof(FeedItem, name), sizeof(FeedItem::name)

// A tag's number is its row. Of two rows with one name the first counts.
constexpr FeedTag kTags[] = {
    {"unknow", 0, 0},
    {"rss", 0, 0},
    {"channel", 0, 0},
    {"title", 0, 0},
    {"link", 0, 0},
    {"pubDate", 0, 0},
    {"copyright", 0, 0},
    {"item", 0, 0},
    {"title", 0, 0},
    {"MajorVer", IN_ITEM(major)},
    {"MinorVer", IN_ITEM(minor)},
    {"BuildPhase", IN_ITEM(phase)},
    {"BuildNum", IN_ITEM(build)},
    {"BuildDate", IN_ITEM(date)},
    {"ReqMajorVer", IN_ITEM(required_major)},
    {"ReqMinorVer", IN_ITEM(required_minor)},
    {"ReqBuildPhase", IN_ITEM(required_phase)},
    {"ReqBuildNum", IN_ITEM(required_build)},
    {"ReqBuildDate", IN_ITEM(required_date)},
    {"model", 0, 0},
    {"mUnique", IN_ITEM(unique)},
    {"mLink", IN_ITEM(link)},
    {"mCheckSum", IN_ITEM(checksum)},
};
constexpr size_t kTagUnique = 20; // it and those behind it count once the model has matched
static_assert(kTags[kTagUnique].name == "mUnique" && std::size(kTags) == kTagUnique + 3);

struct TaggedLine {
    std::string_view tag, value;
};

// Returns 1; 0 when the line has no tag; -1 when it has half a one.
int line_split(std::string_view line, TaggedLine *split)
{
    const size_t open = line.find('<');
    if (open == std::string_view::npos) {
        char shown[1024];
        text_cut(shown, line);
        NORV_LOG(LOG_ERR, "can not find < in [%s]\n", shown);
        return 0;
    }
    const size_t close = line.find('>', open);
    if (close == std::string_view::npos) {
        NORV_LOG(LOG_ERR, "can not find >\n");
        return -1;
    }
    split->tag = line.substr(open + 1, close - open - 1);
    const std::string_view rest = line.substr(close + 1);
    const size_t end = rest.find('<');
    split->value = end == std::string_view::npos ? std::string_view() : rest.substr(0, end);
    return 1;
}

// Tags that are not known, closing ones among them, are taken for the one before.
size_t tag_number(std::string_view name, size_t before)
{
    for (size_t i = 0; i < std::size(kTags); i++)
        if (kTags[i].name == name)
            return i;
    return before;
}

void value_store(const FeedTag &tag, std::string_view value, FeedItem *item)
{
    if (tag.room == 0)
        return;
    char *field = reinterpret_cast<char *>(item) + tag.member;
    memset(field, 0, tag.room);
    value.copy(field, tag.room - size_t{1});
}

long number_of(const char *text)
{
    return strtol(text, nullptr, 0);
}

// Whether the patch may follow on this machine's version: equal will do. The build counts whatever the major version.
bool is_acceptable(const FeedItem &item, const char *version_path)
{
    static constexpr const char *kKeys[] = {"majorversion", "minorversion", "buildphase", "buildnumber", "builddate"};
    enum { kMajor, kMinor, kBuild = 3 };
    long local[std::size(kKeys)] = {};
    for (size_t i = 0; i < std::size(kKeys); i++) {
        const VersionText text = version_text_read(version_path, kKeys[i]);
        if (!text.is_there) {
            NORV_LOG(LOG_ERR, "Get %s value fail\n", kKeys[i]);
            NORV_LOG(LOG_ERR, "get local value fail\n");
            return false;
        }
        local[i] = number_of(text.value);
    }
    const long major = number_of(item.major), minor = number_of(item.minor), build = number_of(item.build);
    NORV_LOG(LOG_ERR, "LocalMajor = %d, ServerMajor = %d\n", static_cast<int>(local[kMajor]), static_cast<int>(major));
    NORV_LOG(LOG_ERR, "Localminor = %d, Serverminor = %d\n", static_cast<int>(local[kMinor]), static_cast<int>(minor));
    if (local[kMajor] > major || (local[kMajor] == major && local[kMinor] > minor))
        return false;
    NORV_LOG(LOG_ERR, "LocalInfo = %d, ServerInfo = %d\n\n", static_cast<int>(local[kBuild]), static_cast<int>(build));
    return local[kBuild] <= build;
}

bool is_whole(const FeedItem &item)
{
    return item.unique[0] != '\0' && item.link[0] != '\0' && item.checksum[0] != '\0';
}

void result_fill(const FeedItem &item, NewVersion *result)
{
    text_cut(result->link, item.link);
    text_cut(result->checksum, item.checksum);
    snprintf(result->version, sizeof(result->version), "NOS %s.%s-%s", item.major, item.minor, item.build);
}

} // namespace

int feed_parse(std::string_view text, const char *unique, const char *version_path, NewVersion *result)
{
    *result = {};
    FeedItem item = {};
    size_t number = 0;
    bool is_matched = false;
    while (!text.empty()) {
        std::string_view line = line_next(&text);
        line = line.substr(0, line.find_first_of(std::string_view("\n\0", 2)));
        if (line.empty())
            continue;
        TaggedLine split;
        const int found = line_split(line, &split);
        if (found == 0) {
            NORV_LOG(LOG_ERR, "No Tag Found\n");
            continue;
        }
        if (found < 0) {
            NORV_LOG(LOG_ERR, "get tag from rss file fail\n");
            return -1;
        }
        number = tag_number(split.tag, number);
        if (number == kTagUnique && split.value == unique) {
            if (!is_acceptable(item, version_path))
                continue;
            is_matched = true;
        }
        if (number >= kTagUnique && !is_matched)
            continue;
        value_store(kTags[number], split.value, &item);
        if (number >= kTagUnique && is_whole(item)) {
            result_fill(item, result);
            return 0;
        }
    }
    return is_matched ? 0 : -1;
}
