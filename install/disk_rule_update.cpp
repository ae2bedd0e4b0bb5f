#include "install/disk_rule_update.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <mbedtls/md5.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/scoped_lock.h"
#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/file_line.h"
#include "lib/file_replace.h"
#include "lib/report.h"
#include "lib/text.h"
#include "product.h"

static constexpr char kLockPath[] = "/var/lock/disk_rule_update.lock";
static constexpr int kLockSeconds = 10;
static constexpr char kServerKey[] = "disk_rule_server";
static constexpr char kScheme[] = "https://";
static constexpr char kListName[] = "disk_rules.md5";
static constexpr size_t kListBytesMax = 4096, kUrlBytes = 512;
static constexpr size_t kMd5Bytes = 16, kMd5Digits = 2 * kMd5Bytes;

namespace
{

__attribute__((format(printf, 3, 4))) int fault(DiskRuleUpdate *update, int code, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(update->fault, sizeof(update->fault), format, arguments);
    va_end(arguments);
    return fail(code);
}

int server_get(char (&server)[kUrlBytes], DiskRuleUpdate *update)
{
    const int length = NLIBCFileGetKeyValue(kDefaultsPath, kServerKey, server, sizeof(server), 0);
    if (length < 0 && NLIBCErrGet() == kErrBufferTooSmall)
        return fault(update, kErrBadParameter, "%s: value too long", kServerKey);
    if (length <= kEmptyValue)
        static_cast<void>(text_set(server, kProductDiskRuleServer));
    const size_t end = strlen(server);
    if (end > 0 && server[end - 1] == '/')
        server[end - 1] = '\0';
    if (strncmp(server, kScheme, strlen(kScheme)) != 0)
        return fault(update, kErrBadParameter, "%s: does not begin with %s", server, kScheme);
    return 0;
}

void md5_text(std::string_view bytes, char (&text)[kMd5Digits + 1])
{
    uint8_t digest[kMd5Bytes];
    mbedtls_md5_ret(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), digest);
    for (size_t i = 0; i < kMd5Bytes; i++)
        snprintf(text + 2 * i, 3, "%02x", digest[i]);
}

// Whether the database in place is the server's already, and sound.
bool is_current(int folder, const char *name, const char *md5)
{
    const UniqueFd file(openat(folder, name, O_RDONLY | O_CLOEXEC));
    FileText text;
    if (!file || file_text_read(file.get(), "", 0, &text) != 0)
        return false;
    char local[kMd5Digits + 1];
    md5_text(text.view(), local);
    DiskRuleReport report;
    return strcmp(local, md5) == 0 && disk_rule_check(text.view(), &report) == 0;
}

int file_fetch(const char *server, const char *name, size_t bytes_max, FileText *text, DiskRuleUpdate *update)
{
    char url[kUrlBytes + 32];
    snprintf(url, sizeof(url), "%s/%s", server, name);
    return https_get(url, bytes_max, text, update->fault, sizeof(update->fault));
}

// Fetches one database, unless it is in place already: `text` stays empty then.
int database_fetch(int folder, const char *server, const char *name, const char *md5, FileText *text,
                   DiskRuleUpdate *update, DiskRuleUpdate::Database *database)
{
    if (is_current(folder, name, md5))
        return 0;
    if (file_fetch(server, name, kDiskRuleBytesMax, text, update) != 0)
        return -1;
    char received[kMd5Digits + 1];
    md5_text(text->view(), received);
    if (strcmp(received, md5) != 0)
        return fault(update, kErrTransfer, "%s: checksum is %s, expected %s", name, received, md5);
    DiskRuleReport report;
    if (disk_rule_check(text->view(), &report) != 0)
        return fault(update, kErrBadFormat, "%s: %s", name, report.fault);
    database->is_new = true;
    memcpy(database->version, report.version, sizeof(database->version));
    return 0;
}

int databases_update(int folder, DiskRuleUpdate *update)
{
    char server[kUrlBytes];
    FileText list, fetched[kDiskRuleDatabases];
    std::string_view texts[kDiskRuleDatabases];
    DiskRuleChecksums checksums;
    if (server_get(server, update) != 0 || file_fetch(server, kListName, kListBytesMax, &list, update) != 0)
        return -1;
    if (disk_rule_checksums_parse(list.view(), &checksums) != 0)
        return fault(update, kErrBadFormat, "%s/%s: not a list of the checksums of both databases", server, kListName);
    for (size_t i = 0; i < kDiskRuleDatabases; i++) {
        if (database_fetch(folder, server, kDiskRuleNames[i], checksums.md5[i], &fetched[i], update,
                           &update->databases[i]) != 0)
            return -1;
        texts[i] = fetched[i].view();
    }
    return disk_rule_databases_put(folder, texts, update);
}

int put_fault(DiskRuleUpdate *update, int code, const char *name)
{
    return fault(update, code, "%s/%s: %s", kDiskRuleFolder, name, strerror(errno));
}

} // namespace

int disk_rule_checksums_parse(std::string_view list, DiskRuleChecksums *checksums)
{
    *checksums = {};
    while (!list.empty()) {
        const std::string_view line = text_strip(line_next(&list));
        if (line.empty())
            continue;
        const std::string_view md5 = line.substr(0, line.find_first_of(" \t"));
        std::string_view name = text_strip(line.substr(md5.size()));
        if (name.starts_with('*')) // how a binary file is marked
            name.remove_prefix(1);
        if (md5.size() != kMd5Digits || name.empty())
            return fail(kErrBadFormat);
        for (size_t i = 0; i < kDiskRuleDatabases; i++) {
            if (name != kDiskRuleNames[i])
                continue;
            if (checksums->md5[i][0] != '\0')
                return fail(kErrBadFormat);
            for (size_t digit = 0; digit < kMd5Digits; digit++) {
                if (isxdigit(static_cast<unsigned char>(md5[digit])) == 0)
                    return fail(kErrBadFormat);
                checksums->md5[i][digit] = static_cast<char>(md5[digit] | 0x20);
            }
        }
    }
    for (const auto &md5 : checksums->md5)
        if (md5[0] == '\0')
            return fail(kErrBadFormat);
    return 0;
}

int disk_rule_databases_put(int folder, const std::string_view (&texts)[kDiskRuleDatabases], DiskRuleUpdate *update)
{
    static constexpr const char *kNewNames[] = {".host_rule.db.new", ".eunit_rule.db.new"};
    static_assert(std::size(kNewNames) == kDiskRuleDatabases);
    int result = 0;
    for (size_t i = 0; i < kDiskRuleDatabases && result == 0; i++)
        if (!texts[i].empty() && file_write_synced(folder, kNewNames[i], texts[i], 0644) != 0)
            result = put_fault(update, NLIBCErrGet(), kNewNames[i]);
    for (size_t i = 0; i < kDiskRuleDatabases && result == 0; i++)
        if (!texts[i].empty() && renameat(folder, kNewNames[i], folder, kDiskRuleNames[i]) != 0)
            result = put_fault(update, kErrRename, kDiskRuleNames[i]);
    if (result == 0 && fsync(folder) != 0)
        return put_fault(update, kErrWrite, "");
    for (size_t i = 0; i < kDiskRuleDatabases && result != 0; i++)
        unlinkat(folder, kNewNames[i], 0);
    return result;
}

int disk_rule_update(DiskRuleUpdate *update)
{
    *update = {};
    const ScopedLock lock(kLockPath, kLockSeconds);
    if (!lock.held())
        return fault(update, kErrLockTimeout, "%s: another update runs, or the lock cannot be had", kLockPath);
    for (const char *path : {"/var/lib", kDiskRuleFolder})
        if (mkdir(path, 0755) != 0 && errno != EEXIST)
            return fault(update, kErrOpen, "%s: %s", path, strerror(errno));
    const UniqueFd folder(open(kDiskRuleFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return fault(update, kErrOpen, "%s: %s", kDiskRuleFolder, strerror(errno));
    return databases_update(folder.get(), update);
}
