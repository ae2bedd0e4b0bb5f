// The maintenance shell that a client can ask for.
#pragma once

// Sets the system clock to 1 January 2000, local time, and starts /usr/sbin/inetd unless it runs. A clock that cannot
// be set is logged and no failure. Returns 0; -1 when inetd does not start.
[[nodiscard]] int FHOSTinetdStart();
