// Lists all processes with their whole command lines, whatever options it is given: "-Iwww" is how the appliance asks.
//   PID S COMMAND; a process without arguments shows its name in brackets
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "autocleanup/unique.h"

namespace
{

std::string file_read(int directory, const char *name)
{
    std::string content;
    const UniqueFd fd(openat(directory, name, O_RDONLY | O_CLOEXEC));
    char bytes[4096];
    for (ssize_t count; fd && (count = read(fd.get(), bytes, sizeof(bytes))) > 0;)
        content.append(bytes, static_cast<size_t>(count));
    return content;
}

// The arguments on one line; bytes that would break it show as '?'.
std::string line_of(std::string arguments)
{
    while (!arguments.empty() && arguments.back() == '\0')
        arguments.pop_back();
    for (char &byte : arguments) {
        if (byte == '\0')
            byte = ' ';
        else if (iscntrl(static_cast<unsigned char>(byte)) != 0)
            byte = '?';
    }
    return arguments;
}

void print(long pid)
{
    const std::string path = "/proc/" + std::to_string(pid);
    const UniqueFd directory(open(path.c_str(), O_DIRECTORY | O_CLOEXEC));
    if (!directory)
        return;                                                  // it has ended meanwhile
    const std::string stat = file_read(directory.get(), "stat"); // "1 (name) S ...", and a name may hold ')'
    const size_t open_at = stat.find('(');
    const size_t close_at = stat.rfind(')');
    if (open_at == std::string::npos || close_at == std::string::npos || close_at + 2 >= stat.size())
        return;
    std::string command = line_of(file_read(directory.get(), "cmdline"));
    if (command.empty())
        command = "[" + line_of(stat.substr(open_at + 1, close_at - open_at - 1)) + "]";
    printf("%5ld %c %s\n", pid, stat[close_at + 2], command.c_str());
}

} // namespace

int main()
{
    const UniqueDir directory(opendir("/proc"));
    if (!directory) {
        perror("ps: /proc");
        return 1;
    }
    std::vector<long> pids;
    while (const dirent *entry = readdir(directory.get()))
        if (isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0)
            pids.push_back(strtol(entry->d_name, nullptr, 10));
    std::sort(pids.begin(), pids.end());
    puts("  PID S COMMAND");
    for (const long pid : pids)
        print(pid);
    return 0;
}
