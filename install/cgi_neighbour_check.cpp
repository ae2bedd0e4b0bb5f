#include <cstdlib>

#include "install/cgi.h"
#include "lib/report.h"
#include "net/lan.h"

int cgi_neighbour_check()
{
    cgi_begin();
    const char *address = getenv("REMOTE_ADDR");
    if (address == nullptr) {
        NORV_LOG(LOG_ERR, "The remote addr is NULL");
        return -1;
    }
    return norv_is_in_lan(address, 1);
}
