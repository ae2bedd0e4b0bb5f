#include <cstdio>

#include "applets/manutild.h"
#include "install/mem_test_progress.h"

static constexpr int32_t kTesting = 2; // a unit that answers is in its memory test

namespace
{

struct Reply {
    uint32_t result;
    char text[60];
};

} // namespace

int MANMemTestProgress(UDPD_HANDLE *handle, char * /*message*/, int /*length*/)
{
    Reply reply = {0, "0%"};
    unsigned long current, total;
    if (GetMemTestProgress(&current, &total) == 0) {
        const unsigned hundredths = mem_test_hundredths(current, total);
        // Stations read this as it is, the second number without leading zeros.
        snprintf(reply.text, sizeof(reply.text), "%u.%0u%%", hundredths / 100, hundredths % 100);
    }
    return man_reply_data(handle, kManMemTestProgress, kTesting, &reply, sizeof(reply));
}
