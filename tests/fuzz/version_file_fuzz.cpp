// VERSION files: the flash's own and, behind a NUL, a patch's.
// Covers: install/compare_version.cpp install/check_partition_version.cpp install/get_user_agent.cpp
// Covers: findhost/reply_facts.cpp(number_read numbers_read part_read fhost_release_read fhost_release_read_parts)

#include "findhost/reply_facts.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/update_request.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"

namespace
{

constexpr char kOwn[] = "/etc.defaults/VERSION", kPatch[] = "/tmp/VERSION";

int sign(int number)
{
    return (number > 0) - (number < 0);
}

} // namespace

void fuzz_begin()
{
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf", "unique=\"norv_x86_fuzz\"\n");
}

void fuzz_one(std::string_view input)
{
    file_root_put(kOwn, text_take(&input, '\0'));
    file_root_put(kPatch, input);
    check(sign(CompareVersion(kOwn, kPatch)) == -sign(CompareVersion(kPatch, kOwn)));
    check(CompareVersion(kPatch, kPatch) == 0);
    const int fits = CheckPartitionVersion(kPatch);
    check(fits == 0 || fits == 1);
    FhostRelease release, parts;
    fhost_release_read(&release);
    fhost_release_read_parts(&parts);
    check(release.build == parts.build && release.small_fix == parts.small_fix);
    for (const char(*version)[64] : {&release.version, &parts.version})
        check_ended(*version);
    char agent[kUserAgentBytes];
    if (GetUserAgent(agent) == 1) {
        const std::string_view told(agent, strnlen(agent, sizeof(agent)));
        check(told.size() < sizeof(agent) && told.ends_with("(webinstaller)"));
        check(told.find('\n') == told.npos); // it becomes a line of a request
    }
}
