#include "lib/codesign_library.h"

#include <cstddef>
#include <cstring>
#include <dlfcn.h>

#include "lib/report.h"

struct LibrarySymbol {
    const char *name;
    size_t member; // byte offset in the table
};
#define LIBRARY_SYMBOL(name)                                                                                           \
    {                                                                                                                  \
#name, offsetof(CodesignLibrary, name)                                                                         \
    }
static constexpr LibrarySymbol kSymbols[] = {
    LIBRARY_SYMBOL(norvarchive_init),
    LIBRARY_SYMBOL(norvarchive_open_with_keytype),
    LIBRARY_SYMBOL(norvarchive_extract_one),
    LIBRARY_SYMBOL(norvarchive_extract_multiple),
    LIBRARY_SYMBOL(norvarchive_get_filenum),
    LIBRARY_SYMBOL(norvarchive_get_filelist),
    LIBRARY_SYMBOL(norvarchive_free),
    LIBRARY_SYMBOL(norvcodesign_init),
    LIBRARY_SYMBOL(norvcodesign_load_signature),
    LIBRARY_SYMBOL(norvcodesign_verify),
    LIBRARY_SYMBOL(norvcodesign_free),
};
static_assert(sizeof(kSymbols) / sizeof(kSymbols[0]) == sizeof(CodesignLibrary) / sizeof(void *));

static bool library_load(CodesignLibrary *out)
{
    void *library = dlopen(kCodesignLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        NORV_LOG(LOG_ERR, "Failed to load %s: %s", kCodesignLibrary, dlerror());
        return false;
    }
    for (const LibrarySymbol &symbol : kSymbols) {
        void *address = dlsym(library, symbol.name);
        if (address == nullptr) {
            NORV_LOG(LOG_ERR, "Failed to find %s in %s", symbol.name, kCodesignLibrary);
            dlclose(library);
            return false;
        }
        memcpy(reinterpret_cast<char *>(out) + symbol.member, &address, sizeof(address));
    }
    return true;
}

const CodesignLibrary *codesign_library()
{
    static CodesignLibrary functions;
    static const bool is_loaded = library_load(&functions);
    return is_loaded ? &functions : nullptr;
}
