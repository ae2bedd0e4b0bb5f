#include "lib/lock.h"

// Both stay calls, so that a full system can give them an effect in this one place.

int NLIBCFileLock([[maybe_unused]] int lock_word, [[maybe_unused]] int seconds)
{
    return 0;
}

int NLIBCFileUnlock([[maybe_unused]] int lock_word)
{
    return 0;
}
