// VERSION files: the flash's own and, behind a NUL, a patch's.
// Covers: install/compare_version.cpp install/check_partition_version.cpp install/get_user_agent.cpp
// Covers: findhost/reply_facts.cpp(number_read numbers_read part_read fhost_release_read fhost_release_read_parts)
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "findhost/reply_facts.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/update_request.h"
#include "tests/fuzz/file_root.h"

namespace
{

constexpr char kOwn[] = "/etc.defaults/VERSION", kPatch[] = "/tmp/VERSION";

void check(bool holds)
{
    if (!holds)
        abort();
}

int sign(int number)
{
    return (number > 0) - (number < 0);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/)
{
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf", "unique=\"norv_x86_fuzz\"\n");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const size_t end = std::min(text.find('\0'), size);
    file_root_put(kOwn, text.substr(0, end));
    file_root_put(kPatch, text.substr(std::min(end + 1, size)));
    check(sign(CompareVersion(kOwn, kPatch)) == -sign(CompareVersion(kPatch, kOwn)));
    check(CompareVersion(kPatch, kPatch) == 0);
    const int fits = CheckPartitionVersion(kPatch);
    check(fits == 0 || fits == 1);
    FhostRelease release, parts;
    fhost_release_read(&release);
    fhost_release_read_parts(&parts);
    check(release.build == parts.build && release.small_fix == parts.small_fix);
    for (const char(*version)[64] : {&release.version, &parts.version})
        check(strnlen(*version, sizeof(*version)) < sizeof(*version));
    char agent[kUserAgentBytes];
    if (GetUserAgent(agent) == 1) {
        const std::string_view told(agent, strnlen(agent, sizeof(agent)));
        check(told.size() < sizeof(agent) && told.ends_with("(webinstaller)"));
        check(told.find('\n') == told.npos); // it becomes a line of a request
    }
    return 0;
}
