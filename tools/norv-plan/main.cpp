// Tells what `raidtool initsys` would do to this machine's disks, without touching them.
#include <cstdio>
#include <cstring>

#include "tools/norv-plan/plan.h"

static constexpr char kUsage[] =
    "usage: norv-plan [--json]\n"
    "\n"
    "Tells for each bay what is on its disk, which format type raidtool finds for it and why, what `raidtool initsys`\n"
    "would erase and keep, and which places of the system arrays stay free. Disks are only read. A disk that fails\n"
    "while it is written cannot be foreseen.\n"
    "\n"
    "  --json  the same for programs\n"
    "  --help  this text\n"
    "\n"
    "Exit status: 0 initsys would make the arrays; 1 it would not, since no disk can take the system; 2 wrong use, or\n"
    "the machine cannot be asked.\n";

int main(int argc, char *argv[])
{
    const bool as_json = argc == 2 && strcmp(argv[1], "--json") == 0;
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 1 && !as_json) {
        fputs(kUsage, stderr);
        return 2;
    }
    Plan plan;
    if (plan_make(&plan) != 0) {
        fputs("norv-plan: the machine's disks cannot be listed; the system log tells why\n", stderr);
        return 2;
    }
    as_json ? plan_print_json(plan) : plan_print(plan);
    return plan.taken > 0 ? 0 : 1;
}
