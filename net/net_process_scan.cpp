#include "net/net_process_scan.h"

#include <climits>
#include <csignal>
#include <unistd.h>

#include "lib/file_line.h"
#include "lib/file_replace.h"
#include "lib/file_text.h"
#include "lib/string.h"
#include "lib/text.h"
#include "net/net_files.h"

static constexpr size_t kProcessesMax = 256;

namespace
{

// Whether the line runs the command: it holds these words, not a longer word that begins with them (eth1 is not eth10),
// and nowhere as what a search looks for.
bool line_runs(std::string_view line, std::string_view command)
{
    bool is_found = false;
    for (size_t at = line.find(command); at != line.npos; at = line.find(command, at + 1)) {
        const std::string_view before = line.substr(0, at), behind = line.substr(at + command.size());
        if (before.ends_with("grep ") || before.ends_with("grep '"))
            return false;
        is_found = is_found || behind.empty() || text_is_white(behind[0]);
    }
    return is_found;
}

// The number that a line begins with; 0 when it is none, or that of init, which is nobody's to kill.
pid_t process_id(std::string_view line)
{
    long long id = 0;
    for (line = text_strip(line); !line.empty() && line[0] >= '0' && line[0] <= '9' && id <= INT_MAX;
         line.remove_prefix(1))
        id = id * 10 + (line[0] - '0');
    return id > 1 && id <= INT_MAX ? static_cast<pid_t>(id) : 0;
}

int clients_find(const char *command, std::span<pid_t> found)
{
    char path[64];
    if (NLIBCStrSnprintf(path, sizeof(path), "/tmp/tempNLIBCPs%u", static_cast<unsigned>(getpid())) < 0)
        return -1;
    unlink(path); // what stands there may be a link
    const UniqueFileName scratch(path);
    FileText output;
    // A search that finds nothing is told as a failure, too.
    static_cast<void>(net_line_run("/bin/ps -Iwww | /bin/grep '%s' > %s 2>&1", command, path));
    return file_text_load(path, &output) == 0 ? net_process_scan(output.view(), command, found) : -1;
}

} // namespace

int net_process_scan(std::string_view output, std::string_view command, std::span<pid_t> found)
{
    size_t count = 0;
    while (!output.empty() && count < found.size()) {
        const std::string_view line = line_next(&output);
        const pid_t id = process_id(line);
        if (id > 0 && line_runs(line, command))
            found[count++] = id;
    }
    return static_cast<int>(count);
}

void net_dhcp_clients_kill(const char *name)
{
    char command[64];
    if (NLIBCStrSnprintf(command, sizeof(command), "/sbin/udhcpc -i %s", name) < 0)
        return;
    for (int round = 0; round < 2; round++) {
        pid_t found[kProcessesMax];
        const int count = clients_find(command, found);
        for (int i = 0; i < count; i++)
            kill(found[i], SIGKILL);
    }
}
