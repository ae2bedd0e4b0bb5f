#include "install/curl_library.h"

#include <cstring>
#include <dlfcn.h>

#include "lib/report.h"

static constexpr char kLibraryName[] = "libcurl.so.4";

// One row for each member of the table, in its order.
static constexpr const char *kNames[] = {
    "curl_easy_init",    "curl_easy_setopt",   "curl_easy_perform",
    "curl_easy_getinfo", "curl_easy_strerror", "curl_easy_cleanup",
};
static_assert(sizeof(CurlLibrary) == sizeof(kNames) / sizeof(kNames[0]) * sizeof(void *));

const CurlLibrary *curl_library()
{
    static CurlLibrary library;
    static bool is_open = false;
    if (is_open)
        return &library;
    void *handle = dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
    void *symbols[sizeof(kNames) / sizeof(kNames[0])] = {};
    bool is_whole = handle != nullptr;
    for (size_t i = 0; is_whole && i < sizeof(kNames) / sizeof(kNames[0]); i++) {
        symbols[i] = dlsym(handle, kNames[i]);
        is_whole = symbols[i] != nullptr;
    }
    if (!is_whole) {
        NORV_LOG(LOG_ERR, "Failed to open %s: %s", kLibraryName, dlerror());
        if (handle != nullptr)
            dlclose(handle);
        return fail(kErrOpen);
    }
    memcpy(&library, symbols, sizeof(library));
    is_open = true;
    return &library;
}
