#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "install/upload.h"
#include "install/upload_buffer.h"
#include "lib/file_text.h"
#include "lib/report.h"

static constexpr int kDrainSeconds = 10;
static constexpr size_t kTextMax = 16 << 20; // bytes of a text, which is held in memory

enum class PartKind { kText, kFile, kEmptyFile };

struct PartHeader {
    char name[64], file_name[4096];
    PartKind kind;
};

struct Upload {
    UploadBuffer buffer;
    UploadStats stats;
    PNLIBSZHASH *params, *files;
    const char *folder;
    int file_count;
};

// Copies the value behind `key`, which ends with its opening quote. Returns false when it has no end or no room.
static bool header_value_take(std::string_view line, std::string_view key, char *value, size_t size)
{
    const size_t start = line.find(key) + key.size();
    const size_t end = line.find('"', start);
    if (end == line.npos)
        return false;
    const size_t length = end - start;
    if (length >= size) {
        NORV_LOG(LOG_ERR, "sizeName(%d) <= lenName(%d)", static_cast<int>(size), static_cast<int>(length));
        return false;
    }
    value[line.copy(value, length, start)] = '\0';
    return true;
}

// Reads a part's header. Of its lines the first one counts.
static bool header_read(UploadBuffer *buffer, PartHeader *header)
{
    static constexpr std::string_view kName = "name=\"", kFileName = "filename=\"";
    std::string_view line;
    if (!upload_line_read(buffer, &line)) {
        NORV_LOG(LOG_ERR, "incomplete line");
        return false;
    }
    const bool is_file = line.find(kFileName) != line.npos;
    if (line.find(kName) == line.npos || !header_value_take(line, kName, header->name, sizeof(header->name)) ||
        (is_file && !header_value_take(line, kFileName, header->file_name, sizeof(header->file_name)))) {
        NORV_LOG(LOG_ERR, "cannot get parameter name");
        return false;
    }
    header->kind = PartKind::kText;
    if (is_file)
        header->kind = header->file_name[0] == '\0' ? PartKind::kEmptyFile : PartKind::kFile;
    do {
        if (!upload_line_read(buffer, &line)) {
            NORV_LOG(LOG_ERR, "incomplete line");
            return false;
        }
    } while (!line.empty());
    return true;
}

static bool text_append(FileText *text, std::string_view more)
{
    const size_t needed = text->size + more.size() + 1;
    if (needed > text->room && !file_text_grow(text, needed * 2))
        return false;
    text->size += more.copy(text->bytes.get() + text->size, more.size());
    text->bytes.get()[text->size] = '\0';
    return true;
}

// Gathers what comes before the delimiter, which is not seen behind a NUL of the same filling.
static bool text_gather(UploadBuffer *buffer, FileText *text)
{
    const std::string_view delimiter(buffer->delimiter, static_cast<size_t>(buffer->delimiter_length));
    for (;;) {
        if (upload_view(*buffer).size() < delimiter.size() && upload_fill(buffer) == 0) {
            NORV_LOG(LOG_ERR, "Cannot fill buffer[%d]", buffer->available);
            return false;
        }
        const std::string_view all = upload_view(*buffer);
        const size_t seen = strnlen(all.data(), all.size());
        const void *found = memmem(all.data(), seen, delimiter.data(), delimiter.size());
        size_t bytes = all.size() - std::min(all.size(), delimiter.size() - 1);
        if (found != nullptr)
            bytes = static_cast<size_t>(static_cast<const char *>(found) - all.data());
        if (bytes > kTextMax - text->size) {
            NORV_LOG(LOG_ERR, "text of more than %zu bytes", kTextMax);
            return false;
        }
        if (!text_append(text, all.substr(0, bytes)))
            return false;
        upload_consume(buffer, found != nullptr ? bytes + 1 : bytes); // its newline
        if (found != nullptr)
            return true;
    }
}

static int text_part_take(Upload *upload, const char *name)
{
    FileText text;
    if (!text_gather(&upload->buffer, &text))
        return kUploadFailed;
    if (text.view().ends_with('\r'))
        text.bytes.get()[text.size - 1] = '\0';
    return NLIBCSzHashSetValue(upload->params, name, text.bytes.get()) < 0 ? kUploadFailed : kUploadGood;
}

static int file_part_take(Upload *upload, const char *name)
{
    if (access(upload->folder, W_OK) != 0) {
        NORV_LOG(LOG_ERR, "failed to access path=%s, reason=%s", upload->folder, strerror(errno));
        return kUploadNoDestination;
    }
    char path[PATH_MAX], key[sizeof(PartHeader::name) + sizeof("_tmp")];
    const int length =
        snprintf(path, sizeof(path), "%s/upload_tmp.%d%d", upload->folder, getpid(), upload->file_count++);
    snprintf(key, sizeof(key), "%s_tmp", name);
    if (length >= PATH_MAX || NLIBCSzHashSetValue(upload->files, key, path) < 0)
        return kUploadFailed;
    if (upload_file_take(&upload->buffer, path))
        return kUploadGood;
    NORV_LOG(LOG_ERR, "failed to read file. %llu/%llu", static_cast<unsigned long long>(upload->stats.done),
             static_cast<unsigned long long>(upload->stats.total));
    return kUploadFailed;
}

static int part_take(Upload *upload)
{
    PartHeader header;
    if (!header_read(&upload->buffer, &header))
        return kUploadFailed;
    if (header.kind == PartKind::kText)
        return text_part_take(upload, header.name);
    if (NLIBCSzHashSetValue(upload->params, header.name, header.file_name) < 0)
        return kUploadFailed;
    if (header.kind == PartKind::kFile)
        return file_part_take(upload, header.name);
    std::string_view line; // the end of the empty content
    static_cast<void>(upload_line_read(&upload->buffer, &line));
    return kUploadGood;
}

// Any line that does not end the form begins a part.
static int parts_take(Upload *upload)
{
    const std::string_view boundary(upload->buffer.boundary, static_cast<size_t>(upload->buffer.boundary_length));
    for (;;) {
        std::string_view line;
        if (!upload_line_read(&upload->buffer, &line)) { // and none will come: input is over, or has stalled
            NORV_LOG(LOG_ERR, "failed to read boundary");
            return kUploadFailed;
        }
        if (line.starts_with(boundary) && line.substr(boundary.size()) == "--")
            break;
        const int status = part_take(upload);
        if (status != kUploadGood)
            return status;
    }
    const bool is_whole = upload->stats.done == upload->stats.total && upload->buffer.available == 0;
    return is_whole ? kUploadGood : kUploadSize;
}

// Reads the size of the form. A negative one stands for whatever it converts to.
static bool total_read(uint64_t *total)
{
    const char *length = getenv("CONTENT_LENGTH");
    if (length == nullptr || *length == '\0') {
        NORV_LOG(LOG_ERR, "failed to get CONTENT_LENGTH by getenv()");
        return false;
    }
    *total = strtoull(length, nullptr, 10);
    if (*total == 0 || *total == UINT64_MAX || strchr(length, '-') != nullptr)
        NORV_LOG(LOG_ERR, "upload CONTENT_LENGTH must > 0, CONTENT_LENGTH =\"%s\" ", length);
    return *total != 0;
}

static const char *boundary_find()
{
    static constexpr char kKey[] = "boundary=";
    const char *type = getenv("CONTENT_TYPE");
    const char *found = type == nullptr ? nullptr : strstr(type, kKey);
    if (found != nullptr)
        return found + strlen(kKey);
    NORV_LOG(LOG_ERR, "failed to get boundary= from CONTENT_TYPE: %s", type == nullptr ? "" : type);
    return nullptr;
}

static int form_take(Upload *upload)
{
    if (!total_read(&upload->stats.total))
        return kUploadLength;
    const char *boundary = boundary_find();
    if (boundary == nullptr || !upload_buffer_start(&upload->buffer, boundary, &upload->stats)) {
        NORV_LOG(LOG_ERR, "failed to get boundary");
        return kUploadFailed;
    }
    return parts_take(upload);
}

// A client that is cut off while it sends never reads the answer.
static void input_drain(UploadBuffer *buffer)
{
    while (upload_input_wait(kDrainSeconds) && read(STDIN_FILENO, buffer->data, sizeof(buffer->data)) > 0)
        ;
}

int NorvUploadParse(PNLIBSZHASH *params, PNLIBSZHASH *files, const char *destDir)
{
    if (params == nullptr || *params == nullptr || files == nullptr || *files == nullptr || destDir == nullptr ||
        *destDir == '\0') {
        NORV_LOG(LOG_ERR, "bad parameters");
        return kUploadFailed;
    }
    Upload upload;
    upload.stats = {.done = 0, .total = 0, .status = kUploadGood};
    upload.params = params;
    upload.files = files;
    upload.folder = destDir;
    upload.file_count = 0;
    upload.stats.status = form_take(&upload);
    if (upload.stats.status != kUploadGood)
        input_drain(&upload.buffer);
    return upload.stats.status;
}
