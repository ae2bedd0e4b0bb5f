// fgets, read and write that try again, at most twice, when a signal interrupted them. errno is as before the call.
#pragma once

#include <cstdio>
#include <sys/types.h>

// Results as of the call named; NULL or -1 with 0x0d00 on a bad argument, zero lengths among them. An interrupted
// NLIBCFgets goes on behind what it has.
[[nodiscard]] char *NLIBCFgets(char *buf, int size, FILE *fp);
[[nodiscard]] ssize_t NLIBCRead(int fd, void *buf, size_t size);
[[nodiscard]] ssize_t NLIBCWrite(int fd, const void *buf, size_t size);
