// libcurl, opened on first use: a role that fetches nothing does not load it.
#pragma once

#include <curl/curl.h>

struct CurlLibrary {
    decltype(&::curl_easy_init) easy_init;
    decltype(&::curl_easy_setopt) easy_setopt;
    decltype(&::curl_easy_perform) easy_perform;
    decltype(&::curl_easy_getinfo) easy_getinfo;
    decltype(&::curl_easy_strerror) easy_strerror;
    decltype(&::curl_easy_cleanup) easy_cleanup;
};

// The library, which stays open to the end of the process. NULL with 0x0900, logged, when it cannot be had; a later
// call tries again.
[[nodiscard]] const CurlLibrary *curl_library();
