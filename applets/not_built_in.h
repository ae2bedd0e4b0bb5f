// What answers for work that this build does not carry.
#pragma once

// Says on standard error that the role is not built in. Returns -1.
int not_built_in(int argc, char *argv[]);
