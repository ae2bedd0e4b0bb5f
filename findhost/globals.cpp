#include "findhost/findhost.h"

int gblAcceptPlain = 1;
int gblDebug = 0;
int gblMemTest = 0;
int gblAsstHasSySMigrat = 1;
int gblReplyPort = 9999;
time_t tvLastQuery = 0;
uint32_t ulLastQueryIP = 0;
time_t tvLastNetSet = 0;
