// libcurl, opened on first use: a role that fetches nothing does not load it.
#pragma once

#include <curl/curl.h>

#include "autocleanup/keep_report.h"

struct CurlLibrary {
    decltype(&::curl_easy_init) easy_init;
    decltype(&::curl_easy_setopt) easy_setopt;
    decltype(&::curl_easy_perform) easy_perform;
    decltype(&::curl_easy_strerror) easy_strerror;
    decltype(&::curl_easy_cleanup) easy_cleanup;
};

// The library: what the process has already, else libcurl.so.4, which stays open to the end of the process. NULL with
// 0x0900, logged, when it cannot be had; a later call tries again.
[[nodiscard]] const CurlLibrary *curl_library();

// One transfer, given back at scope exit. It is false when there can be none; nothing else may be called then.
class CurlTransfer
{
  public:
    CurlTransfer() : library_(curl_library()), handle_(library_ == nullptr ? nullptr : library_->easy_init()) {}
    CurlTransfer(const CurlTransfer &) = delete;
    CurlTransfer &operator=(const CurlTransfer &) = delete;
    ~CurlTransfer() // errno and the error record stay
    {
        const KeepReport keep;
        if (handle_ != nullptr)
            library_->easy_cleanup(handle_);
    }

    explicit operator bool() const { return handle_ != nullptr; }
    // False when the library does not take the option.
    template <typename Value> [[nodiscard]] bool set(CURLoption option, Value value)
    {
        return library_->easy_setopt(handle_, option, value) == CURLE_OK;
    }
    [[nodiscard]] CURLcode perform() { return library_->easy_perform(handle_); }
    [[nodiscard]] const char *reason(CURLcode code) const { return library_->easy_strerror(code); }

  private:
    const CurlLibrary *library_;
    CURL *handle_;
};
