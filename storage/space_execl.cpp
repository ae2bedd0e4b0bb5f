#include <cstdarg>
#include <sys/wait.h>

#include "lib/proc.h"
#include "lib/proc_spawn.h"
#include "lib/report.h"
#include "storage/space.h"

static constexpr size_t kCommandRoom = 1024; // of the text for the log; the program gets all of its arguments

void space_command_text(char *const argv[], char *text, size_t size)
{
    size_t used = 0;
    text[0] = '\0';
    for (int i = 0; argv[i] != nullptr && used < size; i++) {
        const int added = snprintf(text + used, size - used, i == 0 ? "%s" : " %s", argv[i]);
        used += added > 0 ? static_cast<size_t>(added) : 0;
    }
}

int space_run(char *const argv[])
{
    char command[kCommandRoom];
    space_command_text(argv, command, sizeof(command));
    FILE *output = NLIBCPopenv(argv[0], "rE", argv);
    if (output == nullptr)
        return -1;
    space_error_log(command, output);
    return NLIBCPclose(output);
}

int space_execl(const char *program, ...)
{
    va_list rest;
    va_start(rest, program);
    const UniqueArguments arguments = arguments_collect(program, rest);
    va_end(rest);
    const int status = arguments ? space_run(arguments.get()) : -1;
    if (status < 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : fail(kErrChild);
}
