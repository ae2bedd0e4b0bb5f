// The parameters of a web request.
#pragma once

#include "lib/hash.h"

inline constexpr int kCgiParamBytes = 512; // pool of a new hash of parameters

struct CgiRequest {
    PNLIBSZHASH params; // NULL: one is made. The caller releases it, whatever the result
};

// Takes the pairs of the request that the environment describes: of standard input for POST, else of QUERY_STRING, of
// which 65534 bytes count. A POST whose body is shorter than CONTENT_LENGTH is read from HTTP_REFERER instead: what
// stands behind its first "?", and then the rest of the referer as part of the last value. Returns 1; 0 when the
// request is incomplete, or, logged, without memory.
[[nodiscard]] int NorvCgiLoadCGIParam(CgiRequest *request);

// Stores the pairs "name=value&..." of a text, which is decoded in place. Names stay as they are. In values "%" and two
// hex digits are a byte, and "+" is a blank unless `keep_plus`; decoding ends at a bad escape, and the value is then
// whatever lies in the buffer. A pair that cannot be stored is logged and left out.
void cgi_pairs_load(char *text, bool keep_plus, PNLIBSZHASH *params);
