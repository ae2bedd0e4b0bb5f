#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "external/hardware_model.h"
#include "external/sys_attribute.h"
#include "install/recoverable.h"
#include "install/version_text.h"
#include "lib/proc.h"
#include "lib/report.h"

#include "product.h"

static constexpr char kFlashVersionPath[] = "/etc.defaults/VERSION";
static constexpr char kSpecialBuild[] = "42218";

struct RecoveryPaths {
    char disk_conf[512], disk_version[512], patch_version[512], updater[512];
};

static bool paths_fill(const char *root, RecoveryPaths *out)
{
    const struct {
        char (&path)[512];
        const char *below;
    } kPaths[] = {{out->disk_conf, kDefaultsPath},
                  {out->disk_version, kFlashVersionPath},
                  {out->patch_version, "/.norv/patch/VERSION"},
                  {out->updater, "/.norv/patch/updater"}};
    for (const auto &[path, below] : kPaths)
        if (static_cast<size_t>(snprintf(path, sizeof(path), "%s/%s", root, below)) >= sizeof(path))
            return false;
    return true;
}

// Whether a key has a value in both files, and the same.
static bool value_is_same(const char *key, const char *a, const char *b)
{
    const VersionText first = version_text_read(a, key), second = version_text_read(b, key);
    return first.is_there && second.is_there && strcmp(first.value, second.value) == 0;
}

static bool flash_is_same(const char *patch_version)
{
    for (const char *key : {"buildnumber", "smallfixnumber", "packing", "packing_id"})
        if (strcmp(version_text_read(kFlashVersionPath, key).value, version_text_read(patch_version, key).value) != 0)
            return false;
    return true;
}

static bool updater_accepts(const char *updater, const char *root)
{
    const int status = NLIBCExecl(updater, kForkNullStreams, "-a", root, nullptr);
    NORV_LOG(LOG_ERR, "Executing %s -a %s [%d]", updater, root, status);
    return status == 0;
}

// The first builds of some models are left as they are.
static bool is_special_model(const char *disk_version)
{
    char model[32], revision[4];
    if (!hardware_model_get(model, sizeof(model)) ||
        !sys_attribute_read("/proc/sys/kernel/norv_hw_revision", revision, sizeof(revision)) ||
        (strcmp(revision, "r1") != 0 && strcmp(revision, "r2") != 0))
        return false;
    for (const std::string_view name : kProductRecoverableModels)
        if (std::string_view(model).starts_with(name))
            return strcmp(version_text_read(disk_version, "buildnumber").value, kSpecialBuild) == 0;
    return false;
}

int IsSystemRecoverable(const char *root)
{
    if (access(kRecoverFailPath, F_OK) == 0) {
        NORV_LOG(LOG_ERR, "recover fail flag on");
        return 0;
    }
    RecoveryPaths paths;
    if (!paths_fill(root, &paths) || !value_is_same("unique", kDefaultsPath, paths.disk_conf)) {
        NORV_LOG(LOG_ERR, "unique not match");
        return 0;
    }
    if (CompareVersion(kFlashVersionPath, paths.disk_version) > 0) {
        NORV_LOG(LOG_ERR, "flash version is newer than disk version");
        return 0;
    }
    if (!updater_accepts(paths.updater, root)) {
        NORV_LOG(LOG_ERR, "Recover patch is not available.");
        return 0;
    }
    if (!value_is_same("unique", paths.patch_version, paths.disk_conf) ||
        CompareVersion(paths.patch_version, paths.disk_version) != 0) {
        NORV_LOG(LOG_ERR, "Recover image and disk not match");
        return 0;
    }
    if (flash_is_same(paths.patch_version)) {
        NORV_LOG(LOG_INFO, "Recover image has the same version as flash does; no need to recover");
        return 0;
    }
    if (is_special_model(paths.disk_version)) {
        NORV_LOG(LOG_INFO, "NewModel Rx special case, don't recover");
        return 0;
    }
    return 1;
}
