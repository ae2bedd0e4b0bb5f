#include <cstdio>

#include "applets/applets.h"
#include "findhost/findhost_inetd.h"
#include "install/cgi.h"
#include "lib/report.h"

static bool telnet_start()
{
    NORV_LOG(LOG_ERR, "The remote addr is orz");
    if (cgi_neighbour_check() != 0)
        return false;
    if (FHOSTinetdStart() == 0)
        return true;
    NORV_LOG(LOG_ERR, "FHOSTinetdStart fail");
    return false;
}

int start_telnet_cgi_main(int /*argc*/, char * /*argv*/[])
{
    const bool is_started = telnet_start();
    fputs(kCgiHtmlHeader, stdout);
    fputs(is_started ? "{\"success\": true}" : "{\"success\": false}", stdout);
    return is_started ? 0 : -1;
}
