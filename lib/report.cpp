#include "lib/report.h"

constinit ErrorRecord NorvErr = {0, 0, ""};

void NLIBCErrSet(int code, const char *file, int line)
{
    NorvErr = {code, line, file};
}

int NLIBCErrGet()
{
    return NorvErr.code;
}

const char *NLIBCErrFileGet()
{
    return NorvErr.file;
}

int NLIBCErrLineGet()
{
    return NorvErr.line;
}
