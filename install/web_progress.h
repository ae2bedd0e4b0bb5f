// How an install that a browser asked for tells how far it is: in kInstallProgressPath, which is replaced as a
// whole each time, and what went wrong also in the answer to the request.
#pragma once

#include <cstdio>

#include "install/progress.h"

// What went wrong, in the words of the web page.
struct WebError {
    char sec[64], key[64]; // empty: nothing went wrong
    int line;
};
extern WebError gWebError;

void web_error_set(const char *sec, const char *key, int line);
void web_error_set_code(unsigned code); // `line` is the code

// The InstallProgress of a browser's install: writes the stage, or notes the code as the error and writes that.
void web_progress(int stage, unsigned code, unsigned long value);

// Write the file's last content: the error, or that the machine of this name is installed.
void web_progress_fail();
void web_progress_finish(const char *hostname);

// Prints the error as the answer to the request.
void web_error_print(FILE *out);
