#include "storage/partition.h"

#include <cstring>
#include <string_view>

#include "disk/disk.h"
#include "lib/file_line.h"
#include "lib/file_text.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kPartitionsPath[] = "/proc/partitions";
static constexpr std::string_view kBlanks = " \t";
static constexpr int kColumns = 4; // the name is the last

// The name's column with the newline behind it; empty for a line of other than four columns.
static std::string_view name_column(std::string_view line)
{
    std::string_view column;
    int columns = 0;
    for (size_t at = 0; (at = line.find_first_not_of(kBlanks, at)) != std::string_view::npos; at += column.size()) {
        column = line.substr(at);
        column = column.substr(0, column.find_first_of(kBlanks));
        columns++;
    }
    return columns == kColumns ? column : std::string_view();
}

static bool is_wanted(const PartitionFilter &filter, const char *name)
{
    if (filter.prefix != nullptr && strncmp(name, filter.prefix, strlen(filter.prefix)) != 0)
        return false;
    if (filter.container_mask == 0)
        return true;
    const int container = disk_container_get(name);
    if (container < 0) {
        NORV_LOG(LOG_DEBUG, "Failed to parsing device: %s", name);
        return false;
    }
    return (container & filter.container_mask) != 0;
}

int partition_path_enum(const PartitionFilter *filter, PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    FileText text;
    if (file_text_load(kPartitionsPath, &text) != 0)
        return -1;
    std::string_view rest = text.view();
    if (rest.empty()) {
        NORV_LOG(LOG_ERR, "There's no line in /proc/partitions");
        return fail(kErrRead);
    }
    NLIBCSzListSort(*list, kListSorted);
    while (!rest.empty()) {
        std::string_view name = name_column(line_next(&rest));
        if (name.empty())
            continue;
        name.remove_suffix(1); // the newline, or the last letter of a listing that does not end with one
        char path[64];
        if (NLIBCStrSnprintf(path, sizeof(path), "/dev/%.*s", static_cast<int>(name.size()), name.data()) < 0)
            return -1;
        if (filter != nullptr && !is_wanted(*filter, disk_bare_name(path)))
            continue;
        if (NLIBCSzListPush(list, path) < 0)
            return -1;
    }
    return (*list)->nItem;
}
