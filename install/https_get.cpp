#include <algorithm>
#include <cstdio>
#include <cstring>

#include "install/curl_library.h"
#include "install/disk_rule_update.h"
#include "lib/report.h"

static constexpr long kConnectSeconds = 30, kSeconds = 120, kRedirectionsMax = 5;
static constexpr size_t kRoomMin = 4096;

namespace
{

struct Receiver {
    FileText *text;
    size_t bytes_max;
    bool is_over; // there was more than that
};

// libcurl takes any other count than it gave for a failure.
size_t bytes_receive(char *bytes, size_t size, size_t count, void *context)
{
    auto *receiver = static_cast<Receiver *>(context);
    FileText *text = receiver->text;
    const size_t added = size * count, total = text->size + added;
    if (total > receiver->bytes_max) {
        receiver->is_over = true;
        return 0;
    }
    if (total + 1 > text->room && !file_text_grow(text, std::max({total + 1, text->room * 2, kRoomMin})))
        return 0;
    memcpy(text->bytes.get() + text->size, bytes, added);
    text->size = total;
    return added;
}

bool options_set(CurlTransfer *transfer, const char *url, Receiver *receiver)
{
    return transfer->set(CURLOPT_URL, url) && transfer->set(CURLOPT_PROTOCOLS_STR, "https") &&
           transfer->set(CURLOPT_REDIR_PROTOCOLS_STR, "https") && transfer->set(CURLOPT_FOLLOWLOCATION, 1L) &&
           transfer->set(CURLOPT_MAXREDIRS, kRedirectionsMax) && transfer->set(CURLOPT_FAILONERROR, 1L) &&
           transfer->set(CURLOPT_CONNECTTIMEOUT, kConnectSeconds) && transfer->set(CURLOPT_TIMEOUT, kSeconds) &&
           transfer->set(CURLOPT_NOSIGNAL, 1L) && transfer->set(CURLOPT_WRITEFUNCTION, &bytes_receive) &&
           transfer->set(CURLOPT_WRITEDATA, receiver);
}

} // namespace

int https_get(const char *url, size_t bytes_max, FileText *text, char *why, size_t why_size)
{
    CurlTransfer transfer;
    if (!transfer) {
        snprintf(why, why_size, "%s: libcurl is not available", url);
        return fail(kErrOpen);
    }
    text->size = 0;
    Receiver receiver = {.text = text, .bytes_max = bytes_max, .is_over = false};
    CURLcode result = CURLE_BAD_FUNCTION_ARGUMENT;
    if (options_set(&transfer, url, &receiver))
        result = transfer.perform();
    if (receiver.is_over) {
        snprintf(why, why_size, "%s: more than %zu bytes", url, bytes_max);
        return fail(kErrBufferTooSmall);
    }
    if (result != CURLE_OK) {
        snprintf(why, why_size, "%s: %s", url, transfer.reason(result));
        return fail(kErrNetwork);
    }
    return 0;
}
