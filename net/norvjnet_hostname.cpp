#include <cstring>
#include <ctime>
#include <unistd.h>

#include "lib/file.h"
#include "lib/file_replace.h"
#include "lib/string.h"
#include "net/net.h"
#include "net/net_files.h"

static constexpr char kHostsPath[] = "/etc/hosts";
static constexpr char kNetworkPath[] = "/etc/sysconfig/network";

int NORVJNetGetHostname(char (&name)[kHostNameRoom])
{
    memset(name, 0, sizeof(name));
    const NetFilesLock lock(kNetReadLockWord);
    if (!lock.held())
        return -1;
    if (gethostname(name, sizeof(name)) != 0)
        return fail(kErrSystemCall);
    name[strcspn(name, ".")] = '\0';
    return name[0] != '\0' ? 1 : 0;
}

// Writes the lines of the interfaces that have an address.
static void hosts_write(FILE *file, int interfaces, const char *name)
{
    fputs("127.0.0.1\tlocalhost\n", file);
    for (int i = 0; i < interfaces; i++) {
        NORV_CARD card;
        if (NORVJNetGetCard1(i, nullptr, &card) > 0)
            fprintf(file, "%s\t%s\n", card.szIP, name);
    }
}

int NORVJNetSetHostname(const char *name)
{
    if (name == nullptr)
        return fail(kErrBadParameter);
    const NetFilesLock lock(kNetWriteLockWord);
    if (!lock.held() || NLIBCFileSetKeyValue(kNetworkPath, "HOSTNAME", name, kDefaultFormat) != 1)
        return -1;
    const int count = NLIBNetGetInterfaceInfo(nullptr, kNetInterfacesMax, kNetVirtual);
    if (count <= 0) {
        NORV_LOG_OLD(LOG_ERR, "NORVJNetSetHostname", " NORVNetEnumCard fail.(nCard=%d)", count);
        return fail(kErrNetwork);
    }
    char path[64];
    NLIBCStrSnprintf(path, sizeof(path), "%s.tmp%ld", kHostsPath, static_cast<long>(time(nullptr)));
    UniqueFile file(fopen(path, "we"));
    if (!file)
        return fail(kErrOpen);
    const UniqueFileName copy(path);
    hosts_write(file.get(), count, name);
    if (ferror(file.get()) != 0 || fflush(file.get()) != 0 || fsync(fileno(file.get())) != 0)
        return fail(kErrWrite);
    if (sethostname(name, strlen(name) + 1) != 0) // the kernel is given the NUL, too
        return fail(kErrSystemCall);
    if (fclose(file.release()) != 0)
        return fail(kErrWrite);
    return rename(path, kHostsPath) == 0 ? 0 : fail(kErrRename);
}
