#include <cstdio>
#include <unistd.h>

#include "autocleanup/scoped_dir.h"
#include "autocleanup/scoped_mount.h"
#include "disk/disk.h"
#include "install/download.h"
#include "install/download_state.h"
#include "install/feed.h"
#include "install/system_status.h"
#include "install/update_request.h"
#include "lib/file.h"
#include "lib/file_text.h"
#include "lib/globals.h"
#include "lib/report.h"
#include "lib/text.h"
#include "product.h"
#include "storage/partition_layout.h"

static constexpr char kErrorPath[] = "/var/run/checkNewNOS.error";
static constexpr char kFeedPath[] = "/var/run/autoupdate_tmp_file_RSS";
static constexpr char kVersionPath[] = "/etc.defaults/VERSION";
static constexpr char kVersionCacheKey[] = "nos_version";

static constexpr TransferNumber kOptions[] = {
    {CURLOPT_CONNECTTIMEOUT, 30}, {CURLOPT_TIMEOUT, 60}, {CURLOPT_FOLLOWLOCATION, 1}};

// Puts away what a download left that neither ended well nor lives. Returns 0; -1.
static int UpdateDownloadStatus()
{
    if (NLIBCFileIsRegular(kDownloadStatusPath)) {
        DownloadState state;
        if (download_state_read(&state) != 0)
            return -1;
        const bool is_alive = download_is_alive();
        if (state.percent == 100 || is_alive)
            return 0;
    }
    for (const char *path : {kDownloadStatusPath, kErrorPath, "/tmp/last_patch.md5"})
        unlink(path);
    return 0;
}

static int server_get(char (&url)[kUrlBytes])
{
    const int length = NLIBCFileGetKeyValue(kDefaultsPath, "rss_server_ssl", url, sizeof(url), 0);
    if (length < 0) {
        NORV_LOG(LOG_ERR, "Get rss server value fail\n\n");
        return -1;
    }
    if (length <= kEmptyValue)
        text_cut(url, kProductUpdateEndpoint);
    return 0;
}

static int partition_version_append(char (&url)[kUrlBytes])
{
    int version = GetRootPartitionVersion();
    if (version == 0) {
        NORV_LOG(LOG_ERR, "Failed to get root partition version");
        version = partition_layout_version_get(kPartitionVersionDefault, gblSupportRaid != 0);
    }
    if (version <= 0) {
        NORV_LOG(LOG_ERR, "Failed to get current junior partition version");
        return -1;
    }
    char text[16];
    snprintf(text, sizeof(text), "%d", version);
    return UrlAppendQuery(url, "root_partition_version", text);
}

// The build number of the system on the disks. Returns 0; -1.
static int disk_version_get(char *version, int size)
{
    if (RootInfoCacheGet(kVersionCacheKey, version, size) == 1)
        return 0;
    char device[32];
    if (disk_sys_device_path_get(device, sizeof(device)) != 0)
        return -1;
    const ScopedDir folder("/_disk");
    if (!folder.ready())
        return -1;
    const ScopedMount mount(device, "/_disk");
    if (!mount.mounted() ||
        NLIBCFileGetKeyValue("/_disk/etc.defaults/VERSION", "buildnumber", version, size, 0) <= kEmptyValue)
        return -1;
    RootInfoCacheSet(kVersionCacheKey, version);
    return 0;
}

static int disk_version_append(char (&url)[kUrlBytes])
{
    char version[64];
    return disk_version_get(version, sizeof(version)) == 0 ? UrlAppendQuery(url, "disk_version", version) : -1;
}

static int feed_fetch(int mode)
{
    char url[kUrlBytes];
    if (server_get(url) != 0)
        return -1;
    UrlFetch fetch(kFeedPath);
    if (partition_version_append(url) != 0)
        NORV_LOG(LOG_ERR, "unable to append query string of root partition version");
    if (mode == kDownloadMigrate && disk_version_append(url) != 0)
        NORV_LOG(LOG_ERR, "unable to append query string of disk nos version");
    return fetch.perform(url, kOptions, nullptr);
}

static int feed_file_parse(NewVersion *result)
{
    char unique[256];
    FileText text;
    if (NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0) <= kEmptyValue ||
        file_text_load(kFeedPath, &text) != 0)
        return -1;
    return feed_parse(text.view(), unique, kVersionPath, result);
}

int CheckNewVersion(int mode, NewVersion *result)
{
    if (UpdateDownloadStatus() != 0) {
        NORV_LOG(LOG_ERR, "Fail in UpdateDownloadStatus\n");
        return -1;
    }
    unlink(kErrorPath);
    const bool is_fetched = feed_fetch(mode) == 0;
    const bool is_found = is_fetched && feed_file_parse(result) == 0;
    unlink(kFeedPath);
    if (!is_fetched) {
        NORV_LOG(LOG_ERR, "Check NEW NOS fail\n");
    } else if (!is_found) {
        NORV_LOG(LOG_ERR, "The RSS file parse fail\n");
        NORV_LOG(LOG_ERR, "No new NOS\n");
    }
    return is_found ? 0 : -1;
}
