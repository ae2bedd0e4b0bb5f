#include <csignal>
#include <cstdlib>

#include "install/cgi.h"
#include "lib/proc.h"

void cgi_begin()
{
    setenv("PATH", "/sbin:/bin:/usr/sbin:/usr/bin:/usr/norv/sbin:/usr/norv/bin", 1);
    signal_outlive(SIGTERM);
}
