#include <cerrno>
#include <cstdio>

#include "autocleanup/unique.h"
#include "install/curl_library.h"
#include "install/update_request.h"
#include "lib/report.h"

static CURLcode transfer_run(const char *url, FILE *file, std::span<const TransferNumber> numbers,
                             curl_xferinfo_callback on_progress)
{
    CurlTransfer transfer;
    if (!transfer)
        return CURLE_FAILED_INIT;
    bool is_set = transfer.set(CURLOPT_URL, url) && transfer.set(CURLOPT_WRITEDATA, file);
    for (const TransferNumber &number : numbers)
        is_set = is_set && transfer.set(number.option, number.value);
    if (on_progress != nullptr)
        is_set = is_set && transfer.set(CURLOPT_XFERINFOFUNCTION, on_progress) &&
                 transfer.set(CURLOPT_XFERINFODATA, static_cast<void *>(nullptr));
    char agent[kUserAgentBytes];
    if (GetUserAgent(agent) == 1)
        is_set = is_set && transfer.set(CURLOPT_USERAGENT, agent);
    return is_set ? transfer.perform() : CURLE_BAD_FUNCTION_ARGUMENT;
}

int url_fetch(const char *url, const char *path, std::span<const TransferNumber> numbers,
              curl_xferinfo_callback on_progress)
{
    UniqueFile file(fopen(path, "we"));
    if (!file) {
        NORV_LOG(LOG_ERR, "Open %s Fail\n", path);
        return fail(kErrOpen);
    }
    CURLcode code = transfer_run(url, file.get(), numbers, on_progress);
    if (fclose(file.release()) != 0 && code == CURLE_OK)
        code = CURLE_WRITE_ERROR;
    if (code == CURLE_OK)
        return 0;
    NORV_LOG(LOG_ERR, "fail to perform curl, CURLcode returns %d", code);
    return fail(kErrTransfer);
}
