#include "applets/command.h"

#include <cstdio>
#include <cstring>

static const Command *command_find(std::span<const Command> commands, const char *name)
{
    if (name[0] == '\0') // would be the record that closes a table
        return nullptr;
    for (size_t i = commands.size(); i-- > 0;)
        if (strcmp(commands[i].name, name) == 0)
            return &commands[i];
    return nullptr;
}

CommandEnd command_run(std::span<const Command> commands, int argc, char *argv[])
{
    const Command *command = command_find(commands, argv[1]);
    if (command == nullptr)
        return CommandEnd::kUnknown;
    if (command->run(argc, argv) == 0)
        return CommandEnd::kDone;
    puts("Excution Error");
    return CommandEnd::kFailed;
}

void command_usage_print(std::span<const Command> commands)
{
    for (const Command &command : commands)
        fputs(command.usage, stdout);
}
