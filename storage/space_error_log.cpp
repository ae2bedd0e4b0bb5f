#include "lib/report.h"
#include "storage/space.h"

static constexpr size_t kKeptBytes = 2047;
static constexpr size_t kCommandBytes = 1024;

void space_error_log(const char *command, FILE *output)
{
    char text[kKeptBytes + 1];
    size_t kept = 0;
    for (int c = fgetc(output); c != EOF; c = fgetc(output)) // to the end, or the program would wait for a reader
        if (kept < kKeptBytes)
            text[kept++] = c == '\n' ? ' ' : static_cast<char>(c);
    text[kept] = '\0';
    char told[kKeptBytes + kCommandBytes + 32];
    snprintf(told, sizeof(told), "command=\"%s\" Error=\"%s\"", command, text);
    NORV_LOG(LOG_INFO, "SpaceCommand:%s", told);
}
