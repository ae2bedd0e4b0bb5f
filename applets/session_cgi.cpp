#include <cstdio>

#include "applets/applets.h"
#include "install/cgi.h"

int session_cgi_main(int /*argc*/, char * /*argv*/[])
{
    const char *language = GetPreferredLang();
    printf("%s{ \"lang\": \"%s\" }", kCgiJsonHeader, language != nullptr ? language : "enu");
    return 0;
}
