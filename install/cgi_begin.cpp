#include <csignal>
#include <cstdlib>

#include "install/cgi.h"

// Not ignored, which the programs that are started would inherit.
static void signal_outlive(int /*number*/) {}

void cgi_begin()
{
    setenv("PATH", "/sbin:/bin:/usr/sbin:/usr/bin:/usr/norv/sbin:/usr/norv/bin", 1);
    struct sigaction action = {};
    action.sa_handler = signal_outlive;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
}
