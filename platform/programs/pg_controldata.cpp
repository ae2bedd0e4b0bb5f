// Tells the largest alignment of a database on this machine: the only question that the appliance puts to the
// database's program of this name.
//   usage: pg_controldata --dump-alignment
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

int main(int argc, char *argv[])
{
    if (argc != 2 || strcmp(argv[1], "--dump-alignment") != 0) {
        fputs("usage: pg_controldata --dump-alignment\n", stderr);
        return 1;
    }
    printf("%zu\n", std::max({alignof(int16_t), alignof(int64_t), alignof(long), alignof(double)}));
    return 0;
}
