#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "external/enclosure.h"
#include "external/sys_attribute.h"
#include "lib/report.h"
#include "lib/text.h"
#include "product.h"

static constexpr char kClass[] = "/sys/class/enclosure";

int enclosure_enum(PNLIBSZLIST *ids)
{
    if (ids == nullptr || *ids == nullptr)
        return fail(kErrBadParameter);
    const UniqueDir folder(opendir(kClass));
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr)
        if (entry->d_name[0] != '.' && NLIBCSzListPush(ids, entry->d_name) < 0)
            return -1;
    NLIBCSzListSort(*ids, kListSorted);
    return 0;
}

int enclosure_get(const char *id, Enclosure *enclosure)
{
    if (id == nullptr || enclosure == nullptr || *id == '\0' || *id == '.' || strchr(id, '/') != nullptr)
        return fail(kErrBadParameter);
    *enclosure = {};
    char link[NAME_MAX + 32], path[PATH_MAX];
    const int length = snprintf(link, sizeof(link), "%s/%s", kClass, id);
    if (length >= static_cast<int>(sizeof(link)) || realpath(link, path) == nullptr || !text_set(enclosure->id, id) ||
        !text_set(enclosure->host, sys_path_component(path, "host")) ||
        !text_set(enclosure->expander, sys_path_component(path, "expander-")))
        return fail(kErrNoDevice);

    const struct {
        const char *name;
        char *text;
        size_t size;
    } attributes[] = {
        {"vendor", enclosure->vendor, sizeof(enclosure->vendor)},
        {"model", enclosure->model, sizeof(enclosure->model)},
        {"rev", enclosure->revision, sizeof(enclosure->revision)},
    };
    for (const auto &attribute : attributes) {
        snprintf(path, sizeof(path), "%s/device/%s", link, attribute.name);
        sys_attribute_read(path, attribute.text, attribute.size);
    }
    for (const ProductEnclosure &row : kProductEnclosures)
        if (strcmp(row.vendor, enclosure->vendor) == 0 && strcmp(row.model, enclosure->model) == 0)
            enclosure->model_id = row.model_id;
    return 0;
}
