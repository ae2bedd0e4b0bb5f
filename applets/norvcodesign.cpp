#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "applets/applets.h"
#include "autocleanup/unique.h"
#include "lib/codesign_library.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr int kExitNotSigned = 8; // when the library names no error

static void library_sign_free(void *sign)
{
    codesign_library()->norvcodesign_free(sign);
}
using UniqueSign = Unique<void *, nullptr, library_sign_free>;

// Off the virtual edition a deployment may do without signatures.
static bool signature_is_waived()
{
    return NLIBCConfIsVmmVnos() == 0 && NLIBCFileGetKeyValue(kDefaultsPath, "skip_codesign", nullptr, 0, 0) > 0;
}

// Verifies the current directory. What the library refuses never ends with exit status 0.
static int directory_verify(const CodesignLibrary &library, void *sign)
{
    if (library.norvcodesign_verify(sign, 0))
        return 0;
    const int32_t error = static_cast<const CodesignHandle *>(sign)->error;
    syslog(LOG_ERR, "verify norvcodesign fail. err=%d", error);
    return (error & 0xff) != 0 ? error : kExitNotSigned;
}

// What an unpacked tar may have put in place of its signature: a pipe or a device would be waited for.
static bool is_special_file(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

static int folder_verify(void *sign, const char *folder)
{
    const CodesignLibrary *library = codesign_library();
    char path[4096];
    if (sign == nullptr || static_cast<size_t>(snprintf(path, sizeof(path), "%s/Norvessa.sig", folder)) >= sizeof(path))
        return kExitNotSigned;
    if (is_special_file(path) || !library->norvcodesign_load_signature(sign, path)) {
        syslog(LOG_ERR, "load Norvessa.sig fail.");
        return static_cast<const CodesignHandle *>(sign)->error == 0 ? kExitNotSigned : -1;
    }
    if (chdir(folder) != 0) {
        syslog(LOG_ERR, "chdir fail, reason=%m");
        return -1;
    }
    return directory_verify(*library, sign);
}

int norvcodesign_main(int argc, char *argv[])
{
    const CodesignLibrary *library = codesign_library();
    UniqueSign sign(library != nullptr ? library->norvcodesign_init() : nullptr);
    const UniqueText working_directory(getcwd(nullptr, 0));
    if (!working_directory) {
        syslog(LOG_ERR, "getcwd fail, reason=%m");
        return -1;
    }
    if (argc != 2) {
        puts("invalid argument!");
        return -1;
    }
    if (signature_is_waived())
        return 0;
    const int result = folder_verify(sign.get(), argv[1]);
    sign.reset();
    if (chdir(working_directory.get()) != 0)
        syslog(LOG_ERR, "chdir fail, reason=%m");
    return result;
}
