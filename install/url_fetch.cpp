#include <cstdio>

#include "install/update_request.h"
#include "lib/report.h"

UrlFetch::UrlFetch(const char *path) : has_agent_(GetUserAgent(agent_) == 1), file_(fopen(path, "we"))
{
    if (!file_)
        NORV_LOG(LOG_ERR, "Open %s Fail\n", path);
}

CURLcode UrlFetch::transfer(const char *url, std::span<const TransferNumber> numbers,
                            curl_xferinfo_callback on_progress)
{
    if (!transfer_)
        return CURLE_FAILED_INIT;
    bool is_set = transfer_.set(CURLOPT_URL, url) && transfer_.set(CURLOPT_WRITEDATA, file_.get());
    for (const TransferNumber &number : numbers)
        is_set = is_set && transfer_.set(number.option, number.value);
    if (on_progress != nullptr)
        is_set = is_set && transfer_.set(CURLOPT_XFERINFOFUNCTION, on_progress) &&
                 transfer_.set(CURLOPT_XFERINFODATA, static_cast<void *>(nullptr));
    if (has_agent_)
        is_set = is_set && transfer_.set(CURLOPT_USERAGENT, agent_);
    return is_set ? transfer_.perform() : CURLE_BAD_FUNCTION_ARGUMENT;
}

int UrlFetch::perform(const char *url, std::span<const TransferNumber> numbers, curl_xferinfo_callback on_progress)
{
    if (!file_)
        return fail(kErrOpen);
    CURLcode code = transfer(url, numbers, on_progress);
    if (fclose(file_.release()) != 0 && code == CURLE_OK)
        code = CURLE_WRITE_ERROR;
    if (code == CURLE_OK)
        return 0;
    NORV_LOG(LOG_ERR, "fail to perform curl, CURLcode returns %d", code);
    return fail(kErrTransfer);
}
