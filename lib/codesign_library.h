// The signature and archive library, opened on first use: no role but those that verify something needs it.
#pragma once

#include <cstdint>

inline constexpr char kCodesignLibrary[] = "libnorvcodesign-ng-virtual-junior-wins.so.7";

// Both kinds of handle begin with the code of the last error: 0 is none.
struct CodesignHandle {
    int32_t error;
};
inline constexpr int32_t kCodesignBadSignature = 14;

struct CodesignLibrary {
    void *(*norvarchive_init)(const char *dest);
    bool (*norvarchive_open_with_keytype)(void *archive, const char *path, int key_type);
    bool (*norvarchive_extract_one)(void *archive, const char *member, int flags);
    bool (*norvarchive_extract_multiple)(void *archive, const char *const *members, int flags); // NULL: all
    uint64_t (*norvarchive_get_filenum)(void *archive);
    const char *const *(*norvarchive_get_filelist)(void *archive); // NULL-ended, the archive's own
    void (*norvarchive_free)(void *archive);
    void *(*norvcodesign_init)();
    bool (*norvcodesign_load_signature)(void *sign, const char *path);
    bool (*norvcodesign_verify)(void *sign, int flags); // of the current directory
    void (*norvcodesign_free)(void *sign);
};

// The library's functions; NULL, logged, when it cannot be loaded or lacks one. It stays for the life of the process.
[[nodiscard]] const CodesignLibrary *codesign_library();
