#include "install/web_progress.h"

#include <cstdio>

#include "install/cgi.h"
#include "lib/file_replace.h"
#include "lib/report.h"
#include "lib/text.h"

WebError gWebError;

struct ErrorRow {
    unsigned char code;
    const char *sec, *key;
};
static constexpr ErrorRow kErrors[] = {
    {5, "error", "boot_damaged"},
    {6, "error", "error_version"},
    {7, "error", "error_version"},
    {8, "error", "error_model"},
    {9, "error", "error_model"},
    {10, "error", "error_version"},
    {11, "error", "error_model"},
    {12, "error", "error_model"},
    {13, "wizard", "err_patch"},
    {16, "error", "no_space"},
    {19, "wizard", "err_patch"},
    {20, "wizard", "err_patch"},
    {35, "error", "error_mkfs"},
    {39, "error", "error_mkfs"},
    {41, "error", "error_apply_lock"},
    {45, "error", "boot_damaged"},
    {46, "error", "error_download"},
    {47, "status", "mem_testing"},
    {54, "error", "error_upload"},
    {65, "error", "err_vnos_license_expire"},
    {70, "error", "err_root_partition_layout_version"},
};

struct StageRow {
    int stage;
    const char *word;
};
static constexpr StageRow kStages[] = {
    {kStageNetSetting, "net_setting"},
    {kStageFormat, "format_sys"},
    {3, "format_sys"},
    {4, "format_sys"},
    {kStageInstall, "install"},
    {kStageFinish, "install"},
    {kStageCheckBoot, "chk_boot"},
    {kStageDownloadFeed, "download_rss"},
    {kStageDownload, "download"},
    {kStageUpload, "upload"},
};

void web_error_set(const char *sec, const char *key, int line)
{
    text_cut(gWebError.sec, sec);
    text_cut(gWebError.key, key);
    gWebError.line = line;
}

void web_error_set_code(unsigned code)
{
    const char *sec = "error", *key = "error_unknown";
    for (const ErrorRow &row : kErrors)
        if (row.code == code) {
            sec = row.sec;
            key = row.key;
        }
    web_error_set(sec, key, static_cast<int>(code));
}

#define ERROR_BODY R"({"success": false, "data": {}, "errinfo": {"sec": "%s","key": "%s","line":%d}})"

// Logs that the file could not be replaced.
static void written(int result)
{
    if (result != 0)
        NORV_LOG(LOG_ERR, "Open %s Fail\n", kInstallProgressPath);
}

static void stage_write(const char *word)
{
    written(file_replace(kInstallProgressPath,
                         "%s"
                         R"({"success": true, "data": {"stage": "%s"}})",
                         kCgiHtmlHeader, word));
}

void web_progress(int stage, unsigned code, unsigned long /*value*/)
{
    if (code != 0) {
        web_error_set_code(code);
        web_progress_fail();
        return;
    }
    for (const StageRow &row : kStages)
        if (row.stage == stage)
            return stage_write(row.word);
    char word[32];
    snprintf(word, sizeof(word), "unknown status [%u]", static_cast<unsigned>(stage));
    stage_write(word);
}

void web_progress_fail()
{
    written(file_replace(kInstallProgressPath, "%s" ERROR_BODY, kCgiHtmlHeader, gWebError.sec, gWebError.key,
                         gWebError.line));
}

void web_progress_finish(const char *hostname)
{
    written(file_replace(kInstallProgressPath,
                         "%s"
                         R"({"success": true, "data": {"stage": "Success", "hostname": "%s"}})",
                         kCgiHtmlHeader, hostname));
}

void web_error_print(FILE *out)
{
    fprintf(out, "%s" ERROR_BODY, kCgiHtmlHeader, gWebError.sec, gWebError.key, gWebError.line);
}
