#include "disk/disk.h"
#include "disk/disk_rule.h"
#include "lib/file_text.h"
#include "lib/report.h"

int disk_rule_action_get(const char *path, const DiskIdentity &disk, DiskRuleAction *action)
{
    if (path == nullptr || action == nullptr)
        return fail(kErrBadParameter);
    FileText database;
    return file_text_load(path, &database) != 0 ? -1 : disk_rule_action_find(database.view(), disk, action);
}

int disk_is_selectable(const char *disk_name)
{
    DiskIdentity disk;
    if (disk_identity_get(disk_name, &disk) != 0) {
        NORV_LOG(LOG_ERR, "Failed to get identity of disk [%s][0x%04X %s:%d]", disk_name, NORV_ERR_ARGS);
        return -1;
    }
    const bool is_in_unit = external_disk_port_check(disk_name) == kDiskPortExpansion;
    const char *path = is_in_unit ? kDiskRuleExpansionPath : kDiskRuleHostPath;
    DiskRuleAction action;
    if (disk_rule_action_get(path, disk, &action) != 0) {
        NORV_LOG(LOG_ERR, "Failed to look up disk [%s] in %s[0x%04X %s:%d]", disk_name, path, NORV_ERR_ARGS);
        return -1;
    }
    return action.is_selectable ? 1 : 0;
}
