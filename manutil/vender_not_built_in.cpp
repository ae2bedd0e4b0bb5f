// What answers for the factory's record, whose storage this build does not carry: it cannot be had.
#include "manutil/vender.h"

#include "lib/report.h"

static int vender_is_not_built_in()
{
    NORV_LOG(LOG_ERR, "the factory's record is not built in");
    return fail(kErrNoDevice);
}

int NORVManutilMacGet(int /*number*/, uint8_t * /*mac*/)
{
    return vender_is_not_built_in();
}

int NORVManutilMacSet(int /*number*/, const uint8_t * /*mac*/)
{
    return vender_is_not_built_in();
}

int NORVManutilSnGet(char * /*serial*/, size_t /*size*/)
{
    return vender_is_not_built_in();
}

int NORVManutilCustomSnSet(const char * /*serial*/)
{
    return vender_is_not_built_in();
}
