// Files of an array in sysfs: a member's state in the first line, the progress of a rebuild in the rest.
// Covers: storage/raid_members_get.cpp(words_hold raid_disk_state_parse)
// Covers: storage/raid_rebuild_status_get.cpp(raid_sync_completed_parse)

#include "storage/raid_parts.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    const std::string words = text_take(&input, '\n'), rest(input);
    const int state = raid_disk_state_parse(words.c_str());
    uint64_t done = 1, total = 1;
    raid_sync_completed_parse(rest.c_str(), &done, &total);
    check(state != kRaidDiskFailed || words.find("faulty") != words.npos);
    check(done == 0 || rest.find('/') != rest.npos);
}
