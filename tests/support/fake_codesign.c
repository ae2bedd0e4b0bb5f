/* A signature and archive library that does what /etc/fake_codesign says and logs each call. The file holds words and
 * numbers: "open 0 error 14" makes open fail with that error; what is not named succeeds with error 0. */
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

struct handle {
    int32_t error;
};
static struct handle archive, sign;

static int setting(const char *wanted, int otherwise)
{
    FILE *file = fopen("/etc/fake_codesign", "re");
    char word[32];
    int number, result = otherwise;
    while (file != NULL && fscanf(file, "%31s %d", word, &number) == 2)
        if (strcmp(word, wanted) == 0)
            result = number;
    if (file != NULL)
        fclose(file);
    return result;
}

static bool answer(struct handle *handle, const char *call)
{
    const bool good = setting(call, 1) != 0;
    handle->error = good ? 0 : setting("error", 0);
    return good;
}

void *norvarchive_init(const char *dest)
{
    syslog(LOG_DEBUG, "library init %s", dest);
    return setting("init", 1) != 0 ? &archive : NULL;
}
bool norvarchive_open_with_keytype(void *handle, const char *path, int key_type)
{
    syslog(LOG_DEBUG, "library open %s %d", path, key_type);
    return answer(handle, "open");
}
bool norvarchive_extract_one(void *handle, const char *member, int flags)
{
    syslog(LOG_DEBUG, "library one %s %d", member, flags);
    return answer(handle, "extract");
}
bool norvarchive_extract_multiple(void *handle, const char *const *members, int flags)
{
    syslog(LOG_DEBUG, "library multiple %s %d", members != NULL ? members[0] : "all", flags);
    return answer(handle, "extract");
}
uint64_t norvarchive_get_filenum(void *handle)
{
    (void)handle;
    return 2;
}
const char *const *norvarchive_get_filelist(void *handle)
{
    static const char *const kNames[] = {"VERSION", "hda1.tgz", NULL};
    return answer(handle, "list") ? kNames : NULL;
}
void norvarchive_free(void *handle)
{
    syslog(LOG_DEBUG, "library free %d", handle == &archive);
}
void *norvcodesign_init(void)
{
    syslog(LOG_DEBUG, "library sign init");
    return setting("init", 1) != 0 ? &sign : NULL;
}
bool norvcodesign_load_signature(void *handle, const char *path)
{
    syslog(LOG_DEBUG, "library load %s", path);
    return answer(handle, "load");
}
bool norvcodesign_verify(void *handle, int flags)
{
    syslog(LOG_DEBUG, "library verify %d", flags);
    return answer(handle, "verify");
}
void norvcodesign_free(void *handle)
{
    syslog(LOG_DEBUG, "library sign free %d", handle == &sign);
}
bool is_tar(const char *path)
{
    return path != NULL;
}
