#include <cstdlib>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "disk/disk.h"
#include "lib/proc_spawn.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/raid_parts.h"
#include "storage/space.h"

static constexpr size_t kFixedArguments = 12; // the most beside the members, with the NULL

int raid_assemble(const RaidAssembleRequest &request)
{
    if (request.path == nullptr || request.members == nullptr)
        return fail(kErrBadParameter);
    char pattern[256];
    if (NLIBCStrSnprintf(pattern, sizeof(pattern), "/etc/raid/bkp_reshape/%s_*", disk_bare_name(request.path)) < 0)
        return -1;
    GlobMatches backups;
    if (glob(pattern, 0, nullptr, &backups.found) == GLOB_NOSPACE)
        return fail(kErrOutOfMemory); // without its backup a reshape would be lost
    const size_t room = kFixedArguments + static_cast<size_t>(request.members->nItem);
    const UniqueArguments arguments(static_cast<char **>(calloc(room, sizeof(char *))));
    if (!arguments)
        return fail(kErrOutOfMemory);
    size_t count = 0;
    const auto add = [&](const char *word) { arguments.get()[count++] = const_cast<char *>(word); };
    add(kMdadm);
    add("-A");
    add(request.path);
    if (request.force)
        add("-f");
    if (request.uuid != nullptr) {
        add("-u");
        add(request.uuid);
    }
    add("--run");
    if (backups.found.gl_pathc > 0) {
        add("--backup-file");
        add(backups.found.gl_pathv[backups.found.gl_pathc - 1]); // the newest
    }
    if (request.update == kAssembleLayoutOriginal)
        add("--update=layout-original");
    if (request.update == kAssembleLayoutAlternate)
        add("--update=layout-alternate");
    for (int i = 0; i < request.members->nItem; i++)
        add(request.members->items[i]);
    if (request.invalidBackup)
        add("--invalid-backup");

    char command[1024];
    space_command_text(arguments.get(), command, sizeof(command));
    NORV_LOG(LOG_DEBUG, "Do cmd: '%s'", command);
    return space_run(arguments.get());
}
