// How the update server is asked.
#pragma once

#include <cstddef>
#include <curl/curl.h>
#include <span>

#include "autocleanup/unique.h"
#include "install/curl_library.h"

inline constexpr size_t kUrlBytes = 4095, kUserAgentBytes = 256;

// Appends "key=value" to the query of a URL, unescaped. Returns 0; -1, logged, the URL unchanged, when it has no room.
[[nodiscard]] int UrlAppendQuery(char (&url)[kUrlBytes], const char *key, const char *value);

// Writes who asks: model, system and version. Returns 1; 0 when one of them is not known, or there is no room.
[[nodiscard]] int GetUserAgent(char (&buffer)[kUserAgentBytes]);

struct TransferNumber {
    CURLoption option; // one that takes a long
    long value;
};

// A fetch of what a URL gives, also after redirections and with whatever status of HTTP, into a file.
class UrlFetch
{
  public:
    // Reads who asks, begins a transfer, and makes or empties the file. What cannot be had fails `perform`.
    explicit UrlFetch(const char *path);
    //   on_progress  may be NULL
    // Returns 0; -1, logged, the file in whatever state. To be called once.
    [[nodiscard]] int perform(const char *url, std::span<const TransferNumber> numbers,
                              curl_xferinfo_callback on_progress);

  private:
    [[nodiscard]] CURLcode transfer(const char *url, std::span<const TransferNumber> numbers,
                                    curl_xferinfo_callback on_progress);

    char agent_[kUserAgentBytes];
    bool has_agent_;
    CurlTransfer transfer_;
    UniqueFile file_;
};
