// The roles whose work has not been built yet. Such a name must not fall through to the event daemon.
#include "applets/not_built_in.h"

#include <cstdio>

#include "applets/applets.h"
#include "lib/report.h"

int not_built_in(int argc, char *argv[])
{
    const char *name = argc > 0 && argv[0] != nullptr ? base_name(argv[0]) : "";
    fprintf(stderr, "%s: this role is not built in\n", name);
    return -1;
}

#define NOT_BUILT_IN(role)                                                                                             \
    int role(int argc, char *argv[])                                                                                   \
    {                                                                                                                  \
        return not_built_in(argc, argv);                                                                               \
    }

NOT_BUILT_IN(install_cgi_main)
NOT_BUILT_IN(recover_cgi_main)
NOT_BUILT_IN(clean_button_flags_cgi_main)
