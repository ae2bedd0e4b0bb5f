#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "install/download_state.h"
#include "install/patch.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/file_replace.h"
#include "lib/norvarchive.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr off_t kVersionMostBytes = 1 << 20; // of a file of a dozen lines

// A line on standard error that stands in the log too.
#define TELL(format, ...)                                                                                              \
    do {                                                                                                               \
        fprintf(stderr, "%s:%d " format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__);                          \
        NORV_LOG(LOG_ERR, format __VA_OPT__(, ) __VA_ARGS__);                                                          \
    } while (0)

// Tells the download side of a patch that needs no download.
static bool download_state_write(const char *patch)
{
    if (file_replace(kDownloadStatusPath, "100 0 %s Link", patch) == 0)
        return true;
    TELL("Fail to open file %s\n", kDownloadStatusPath);
    return false;
}

// Whether what the patch calls VERSION can be read without harm: a link could lead to a device, a pipe has no end. As
// it stays, it is no program either, whatever mode the patch gave it.
static bool version_is_plain(const char *version_path)
{
    struct stat status;
    return lstat(version_path, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           status.st_size <= kVersionMostBytes && chmod(version_path, 0644) == 0;
}

static bool version_extract_either(const char *patch, const char *folder, const char *version_path)
{
    NORV_LOG(LOG_INFO, "Extracting VERSION from Old Patch Format [%s][%s]", patch, folder);
    if (NLIBCExecl("/bin/tar", kForkNullStreams, "-x", "-f", patch, "-C", folder, "VERSION", nullptr) == 0)
        return true;
    NORV_LOG(LOG_ERR, "Extracting VERSION from NorvArchive");
    unlink(version_path);
    return NorvArchiveExtractSystemMember(patch, folder, "VERSION") == kNorvArchiveGood;
}

// Puts the patch's VERSION into the folder; one that was there before does not count.
static bool version_extract(const char *patch, const char *folder, const char *version_path)
{
    const bool is_free = unlink(version_path) == 0 || errno == ENOENT;
    if (version_extract_either(patch, folder, version_path) && version_is_plain(version_path))
        return true;
    if (is_free && unlink(version_path) != 0 && errno == EISDIR)
        NLIBCExecl("/bin/rm", kForkNullStreams, "-rf", version_path, nullptr);
    NORV_LOG(LOG_ERR, "VERSION Extraction failed [%s]", patch);
    TELL("Version Check Fail.\n");
    return false;
}

static int model_check(const char *version_path)
{
    char own[128], patch[128];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "unique", own, sizeof(own), 0) <= 0) {
        TELL("Get Org Unique Key Fail\n");
        return kPatchFailed;
    }
    if (NLIBCFileGetKeyValue(version_path, "unique", patch, sizeof(patch), 0) <= 0) {
        TELL("Get Org Version Key Fail\n");
        return kPatchFailed;
    }
    if (strcmp(own, patch) != 0) {
        TELL("Check Unique Fail, Current Unique = %s, Patch Unique = %s\n", own, patch);
        return kPatchOtherModel;
    }
    return kPatchGood;
}

// The check of a patch whose path is a copy that may be cut.
static int patch_check(const char *patch)
{
    const char *extension = strrchr(patch, '.');
    if (extension == nullptr || strcmp(extension, ".pat") != 0) {
        fprintf(stderr, "%s:%d Wrong File Extension.\n\n", __FILE_NAME__, __LINE__);
        NORV_LOG_OLD(LOG_ERR, "IsPatchCompatible", ": Bad format of szFilePath(%s): wrong file extension.", patch);
        return kPatchFailed;
    }
    if (!NLIBCFileIsRegular(patch)) {
        fprintf(stderr, "%s:%d The file does not exist, please type the right patch path\n\n", __FILE_NAME__, __LINE__);
        NORV_LOG_OLD(LOG_ERR, "IsPatchCompatible", ": szFilePath(%s) does not exist", patch);
        return kPatchFailed;
    }
    if (!download_state_write(patch))
        return kPatchFailed;
    const char *slash = strrchr(patch, '/');
    if (slash == nullptr)
        return kPatchFailed;
    char folder[PATH_MAX], version_path[PATH_MAX + 16];
    text_cut(folder, {patch, slash});
    snprintf(version_path, sizeof(version_path), "%s/VERSION", folder);
    if (!version_extract(patch, slash == patch ? "/" : folder, version_path))
        return kPatchFailed;
    const int result = model_check(version_path);
    if (result != kPatchGood)
        return result;
    if (!NLIBCConfIsHdSeries() && CheckPartitionVersion(version_path) != 1)
        return kPatchPartitionVersion;
    TELL("Unique Check Pass\n\n");
    return kPatchGood;
}

int IsPatchCompatible(const char *path)
{
    char patch[PATH_MAX];
    text_cut(patch, path);
    const int result = patch_check(patch);
    if (result != kPatchGood) {
        fprintf(stderr, "%s:%d Check patch compatible failed with %s.\n", __FILE_NAME__, __LINE__, patch);
        NORV_LOG_OLD(LOG_ERR, "IsPatchCompatible", ": Check patch compatible failed with %s (%d).", patch, result);
    }
    return result;
}
