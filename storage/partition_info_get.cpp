#include "storage/partition.h"

#include <string_view>

#include "disk/disk.h"
#include "lib/io.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"

static constexpr std::string_view kBlanks = " \t\r\n";

static bool number_take(std::string_view *line, int base, uint64_t *value)
{
    std::string_view column = text_word_take(line, kBlanks);
    if (base == 16 && column.starts_with("0x"))
        column.remove_prefix(2);
    return text_number(column, value, base);
}

int partition_line_parse(const char *line, PartitionExtent *extent)
{
    std::string_view rest(line);
    PartitionExtent read = {};
    if (text_word_take(&rest, kBlanks).empty() || !number_take(&rest, 10, &read.start) ||
        !number_take(&rest, 10, &read.size) || !number_take(&rest, 16, &read.fsId) || read.size > INT64_MAX)
        return fail(kErrBadFormat);
    *extent = read;
    return 0;
}

int64_t PartitionInfoGet(int n, const char *disk, uint64_t *start, uint64_t *fsId)
{
    if (disk == nullptr || n < 1)
        return fail(kErrBadParameter);
    char path[64], number[16], line[256];
    if (disk_device_path_get(disk, path, sizeof(path)) < 0 || NLIBCStrSnprintf(number, sizeof(number), "-N%d", n) < 0)
        return -1;
    FILE *listing = NLIBCPopen(kPartitionTool, "r", "-l", "-uS", number, path, nullptr);
    if (listing == nullptr)
        return -1;
    PartitionExtent extent;
    const bool is_read = NLIBCFgets(line, sizeof(line), listing) != nullptr && partition_line_parse(line, &extent) == 0;
    NLIBCPclose(listing);
    if (!is_read)
        return fail(kErrBadFormat);
    if (start != nullptr)
        *start = extent.start;
    if (fsId != nullptr)
        *fsId = extent.fsId;
    return static_cast<int64_t>(extent.size);
}
