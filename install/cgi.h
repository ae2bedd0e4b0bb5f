// What the web programs have in common: the headers of their answers and what a request tells of its user.
#pragma once

#include <cstdint>

inline constexpr char kCgiHtmlHeader[] = "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\n"
                                         "Cache-Control: no-store, no-cache, must-revalidate\r\n"
                                         "Pragma: no-cache\r\n"
                                         "Content-type: text/html; charset=\"UTF-8\"\r\n"
                                         "\r\n";
inline constexpr char kCgiJsonHeader[] = "Content-type: application/json; charset=\"UTF-8\"\r\n"
                                         "\r\n";

// The user's language as a three-letter code: the first of HTTP_ACCEPT_LANGUAGE that the key `supplang` of the model
// description offers. NULL when none is. Of each of the two, 127 bytes are looked at; a longer `supplang` is none.
[[nodiscard]] const char *GetPreferredLang();

// Splits the next "name=value" off a query, in place: nothing is decoded, and empty pairs are stepped over.
//   query  what is left of it; NULL behind its end
//   value  receives what stands behind the first "="; "" where there is none
// Returns the name; NULL at the end.
[[nodiscard]] char *cgi_query_next(char **query, char **value);

// Sets the board's clock to what a client tells, in seconds since 1970; 0 and all ones are no time. Returns 0; -1 when
// the clock does not take it.
[[nodiscard]] int cgi_clock_set(uint64_t seconds);

// What comes first in a request that changes the machine: sets PATH for the programs that it starts, and outlives its
// client. The web server ends the request of a client that hangs up by SIGTERM, maybe while a volume is mounted; that
// only interrupts a wait for its input.
void cgi_begin();

// The same, and holds that its client, REMOTE_ADDR, is on a wire of ours.
// Returns 0; -1 when it is not, logged when there is no REMOTE_ADDR.
[[nodiscard]] int cgi_neighbour_check();
