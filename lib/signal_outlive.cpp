#include <csignal>

#include "lib/proc.h"

// Not ignored, which the programs that are started would inherit.
static void signal_pass(int /*number*/) {}

void signal_outlive(int number)
{
    struct sigaction action;
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
        return;
    action.sa_handler = signal_pass;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}
