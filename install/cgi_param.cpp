#include "install/cgi_param.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>
#include <utility>

#include "autocleanup/unique.h"
#include "lib/file_text.h"
#include "lib/report.h"

static constexpr size_t kQueryMax = 65534, kEmptyBodyRoom = 2047; // bytes

// The value of a hex digit; -1 for any other byte.
static int hex_value(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const int letter = digit | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// Decodes a value in place. It ends early at a NUL that an escape gives, and stays without an end of its own at a bad
// escape.
static void value_decode(char *value, bool keep_plus)
{
    char *to = value;
    for (const char *from = value; *from != '\0'; to++) {
        if (*from != '%') {
            *to = *from == '+' && !keep_plus ? ' ' : *from;
            from++;
            continue;
        }
        const int high = hex_value(from[1]), low = high < 0 ? -1 : hex_value(from[2]);
        if (low < 0)
            return;
        *to = static_cast<char>(high << 4 | low);
        from += 3;
    }
    *to = '\0';
}

void cgi_pairs_load(char *text, bool keep_plus, PNLIBSZHASH *params)
{
    for (char *name = text; name != nullptr && *name != '\0';) {
        char *value = strchr(name, '=');
        if (value == nullptr)
            return;
        *value++ = '\0';
        char *next = strchr(value, '&');
        if (next != nullptr)
            *next++ = '\0';
        value_decode(value, keep_plus);
        if (NLIBCSzHashSetValue(params, name, value) < 0)
            NORV_LOG(LOG_ERR, "Failed to set hash value %s=%s", name, value);
        name = next;
    }
}

// The room for a body: five times its bytes, as far as an int counts.
static size_t body_room(int length)
{
    static constexpr int kLargest = 429496729;
    if (length == 0)
        return kEmptyBodyRoom;
    const int64_t room = length >= kLargest ? int64_t{INT_MAX} : int64_t{length} * 5;
    return static_cast<size_t>(std::max(room, int64_t{length} + 1)); // its NUL too
}

// Puts the referer in the place of the body. What it holds behind "?" is moved to the front of it, and the rest of the
// referer stays behind that. Returns 0; -1 when there is none, or without memory.
static int referer_take(FileText *text)
{
    const char *referer = getenv("HTTP_REFERER");
    if (referer == nullptr)
        return fail(kErrKeyMissing);
    const size_t length = strlen(referer);
    if (length >= text->room && !file_text_grow(text, length + 1)) {
        NORV_LOG_OLD(LOG_ERR, "NorvCgiLoadCGIParam", "Failed to realloc reason=%m");
        return fail(kErrOutOfMemory);
    }
    char *bytes = text->bytes.get();
    memcpy(bytes, referer, length + 1);
    if (const char *query = strchr(bytes, '?'))
        memmove(bytes, query + 1, strlen(query + 1));
    return 0;
}

static UniqueText body_read()
{
    const char *length_text = getenv("CONTENT_LENGTH");
    if (length_text == nullptr)
        return {};
    const int length = atoi(length_text);
    if (length < 0) {
        NORV_LOG_OLD(LOG_ERR, "NorvCgiLoadCGIParam", " CONTENT_LENGTH < 0");
        return {};
    }
    FileText text;
    if (!file_text_grow(&text, body_room(length))) {
        NORV_LOG_OLD(LOG_ERR, "NorvCgiLoadCGIParam", "Failed to malloc, reason=%m");
        fail(kErrOutOfMemory);
        return {};
    }
    const auto wanted = static_cast<size_t>(length);
    static_cast<void>(file_read_on(STDIN_FILENO, text.bytes.get(), wanted, &text.size));
    text.bytes.get()[text.size] = '\0';
    if (text.size < wanted && referer_take(&text) != 0)
        return {};
    return std::move(text.bytes);
}

static UniqueText query_read()
{
    const char *query = getenv("QUERY_STRING");
    if (query == nullptr)
        return {};
    UniqueText text(strndup(query, kQueryMax));
    if (!text) {
        NORV_LOG_OLD(LOG_ERR, "NorvCgiLoadCGIParam", "Failed to malloc, reason=%s", strerror(errno));
        fail(kErrOutOfMemory);
    }
    return text;
}

int NorvCgiLoadCGIParam(CgiRequest *request)
{
    if (request->params == nullptr)
        request->params = NLIBCSzHashAlloc(kCgiParamBytes);
    if (request->params == nullptr) {
        NORV_LOG_OLD(LOG_ERR, "NorvCgiLoadCGIParam", "Failed to NLIBCSzHashAlloc, reason=%m");
        return 0;
    }
    const char *method = getenv("REQUEST_METHOD");
    if (method == nullptr)
        return 0;
    const UniqueText text = strcasecmp(method, "POST") == 0 ? body_read() : query_read();
    if (!text)
        return 0;
    const bool keep_plus = strcasecmp(method, "GET") == 0 || strcasecmp(method, "HEAD") == 0;
    cgi_pairs_load(text.get(), keep_plus, &request->params);
    return 1;
}
