#include "applets/applets.h"

#include "external/pstore.h"

int norv_pstore_collect_main(int /*argc*/, char * /*argv*/[])
{
    return pstore_collect() < 0 ? -1 : 0;
}
