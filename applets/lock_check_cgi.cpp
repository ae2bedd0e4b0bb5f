#include <cstdio>

#include "applets/applets.h"
#include "install/cgi.h"
#include "install/install_lock.h"

int lock_check_cgi_main(int /*argc*/, char * /*argv*/[])
{
    fputs(kCgiHtmlHeader, stdout);
    fputs(IsInstallLocked() ? "{\"success\": false, \"errinfo\": {\"sec\": \"error\", \"key\": \"error_apply_lock\"}}"
                            : "{\"success\": true, \"data\": {}}",
          stdout);
    return 0;
}
