// Commands of the factory tool that are units of their own. They take the process's arguments.
#pragma once

// Prints the tool's usage text.
void mantool_usage_print();

// Sets the system's clock and the board's to a local date and time, "yyyy/mm/dd" and "hh:mm:ss", and prints what the
// board then tells. Says on standard output what is wrong. Returns 0; -1.
int SetTimeCommand(int argc, char *argv[]);
