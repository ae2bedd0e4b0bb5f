#include "install/patch.h"

#include <span>

struct CodeRow {
    int result; // PatchResult
    InstallCode code;
};

// The two steps tell a few failures apart from each other; all else is a patch that is no good.
static constexpr CodeRow kCheckCodes[] = {{kPatchUpdaterRefused, kCodeVersion},
                                          {kPatchOtherModel, kCodeModel},
                                          {kPatchPartitionVersion, kCodePartitionVersion}};
static constexpr CodeRow kUpgradeCodes[] = {
    {kPatchUpdaterRefused, kCodeVersion}, {kPatchOtherModel, kCodeModel}, {kPatchLicence, kCodeLicence}};

static unsigned code_of(std::span<const CodeRow> rows, int result)
{
    for (const CodeRow &row : rows)
        if (row.result == result)
            return row.code;
    return kCodePatch;
}

int patch_upgrade(const char *path, const char *mount, InstallProgress progress)
{
    progress(kStageInstall, 0, 0);
    const int result = ErrFHOSTDoUpgrade(path, mount);
    if (result == kPatchGood)
        return 0;
    progress(kStageInstall, code_of(kUpgradeCodes, result), 0);
    return -1;
}

int InstallPatch(const char *path, const char *mount, InstallProgress progress)
{
    const int result = IsPatchCompatible(path);
    if (result == kPatchGood)
        return patch_upgrade(path, mount, progress);
    progress(kStageInstall, code_of(kCheckCodes, result), 0);
    return -1;
}
