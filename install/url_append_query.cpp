#include <cstdio>
#include <cstring>

#include "install/update_request.h"
#include "lib/report.h"

static int query_append(char (&url)[kUrlBytes], const char *key, const char *value)
{
    const size_t length = strlen(url), room = sizeof(url) - length;
    if (room <= 1) {
        NORV_LOG(LOG_ERR, "no enough space to store query string");
        return fail(kErrBufferTooSmall);
    }
    const char *format = strchr(url, '?') == nullptr ? "?%s=%s" : "&%s=%s";
    if (static_cast<size_t>(snprintf(url + length, room, format, key, value)) < room)
        return 0;
    url[length] = '\0';
    NORV_LOG(LOG_ERR, "string truncated, no enough space to ctore query string");
    return fail(kErrBufferTooSmall);
}

int UrlAppendQuery(char (&url)[kUrlBytes], const char *key, const char *value)
{
    if (query_append(url, key, value) == 0)
        return 0;
    NORV_LOG(LOG_ERR, "failed to append query string to URL");
    return -1;
}
