#include "install/curl_library.h"

#include <cstring>
#include <dlfcn.h>
#include <iterator>

#include "lib/report.h"

static constexpr char kLibraryName[] = "libcurl.so.4";

// One row for each member of the table, in its order.
static constexpr const char *kNames[] = {
    "curl_easy_init", "curl_easy_setopt", "curl_easy_perform", "curl_easy_strerror", "curl_easy_cleanup",
};
using Symbols = void * [std::size(kNames)];
static_assert(sizeof(CurlLibrary) == sizeof(Symbols));

// Looks for those that are missing yet. Returns whether all are there now.
static bool symbols_find(void *handle, Symbols &symbols)
{
    bool is_whole = true;
    for (size_t i = 0; i < std::size(kNames); i++) {
        if (symbols[i] == nullptr)
            symbols[i] = dlsym(handle, kNames[i]);
        is_whole = is_whole && symbols[i] != nullptr;
    }
    return is_whole;
}

const CurlLibrary *curl_library()
{
    static CurlLibrary library;
    static bool is_open = false;
    if (is_open)
        return &library;
    Symbols symbols = {};
    if (!symbols_find(RTLD_DEFAULT, symbols)) {
        // All of it now: one that misses a part of its own fails here, and not the process in the middle of a download.
        void *handle = dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr || !symbols_find(handle, symbols)) {
            NORV_LOG(LOG_ERR, "Failed to open %s: %s", kLibraryName, dlerror());
            if (handle != nullptr)
                dlclose(handle);
            return fail(kErrOpen);
        }
    }
    memcpy(&library, symbols, sizeof(library));
    is_open = true;
    return &library;
}
