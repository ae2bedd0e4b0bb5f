#include <cstdio>

#include "applets/applets.h"
#include "install/disk_rule_update.h"
#include "lib/report.h"

int norvdiskupdatehclport_main(int argc, char *argv[])
{
    if (argc != 1) {
        fprintf(stderr, "Usage: %s\n", argc > 0 ? base_name(argv[0]) : "norvdiskupdatehclport");
        return -1;
    }
    DiskRuleUpdate update;
    if (disk_rule_update(&update) != 0) {
        NORV_LOG(LOG_ERR, "Failed to update the disk rules: %s[0x%04X %s:%d]", update.fault, NORV_ERR_ARGS);
        fprintf(stderr, "%s: %s\n", base_name(argv[0]), update.fault);
        return -1;
    }
    for (size_t i = 0; i < kDiskRuleDatabases; i++) {
        const auto &database = update.databases[i];
        if (!database.is_new)
            printf("%s: up to date\n", kDiskRuleNames[i]);
        else if (database.version[0] == '\0')
            printf("%s: updated\n", kDiskRuleNames[i]);
        else
            printf("%s: updated to version %s\n", kDiskRuleNames[i], database.version);
    }
    return 0;
}
