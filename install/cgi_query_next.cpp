#include <cstring>

#include "install/cgi.h"

char *cgi_query_next(char **query, char **value)
{
    char *name = strsep(query, "&");
    while (name != nullptr && *name == '\0')
        name = strsep(query, "&");
    if (name == nullptr)
        return nullptr;
    *value = name + strcspn(name, "=");
    if (**value != '\0')
        *(*value)++ = '\0';
    return name;
}
