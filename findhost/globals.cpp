#include "findhost/findhost.h"

int gblAcceptPlain = 1;
int gblDebug = 0;
int gblMemTest = 0;
int gblAsstHasSySMigrat = 1;
int gblReplyPort = 9999;
