// Files of an array in sysfs: a member's state in the first line, the progress of a rebuild in the rest.
// Covers: storage/raid_members_get.cpp(words_hold raid_disk_state_parse)
// Covers: storage/raid_rebuild_status_get.cpp(raid_sync_completed_parse)
#include <cstdint>
#include <cstdlib>
#include <string>

#include "storage/raid_parts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = text.find('\n');
    const std::string words = text.substr(0, end), rest = end == std::string::npos ? "" : text.substr(end + 1);
    const int state = raid_disk_state_parse(words.c_str());
    uint64_t done = 1, total = 1;
    raid_sync_completed_parse(rest.c_str(), &done, &total);
    const bool has_word = words.find("faulty") != std::string::npos;
    if ((state == kRaidDiskFailed && !has_word) || (done != 0 && rest.find('/') == std::string::npos))
        abort();
    return 0;
}
