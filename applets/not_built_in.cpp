#include "applets/not_built_in.h"

#include <cstdio>

#include "lib/report.h"

int not_built_in(int argc, char *argv[])
{
    const char *name = argc > 0 && argv[0] != nullptr ? base_name(argv[0]) : "";
    fprintf(stderr, "%s: this role is not built in\n", name);
    return -1;
}
