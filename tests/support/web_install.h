// Machines, requests and answers of installs that a browser asks for.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/firmware.h"
#include "tests/support/sandbox.h"

inline constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
inline const std::string kModel =
    "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\nsupportraid=yes\n";
inline const std::string kHeader = "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\n"
                                   "Cache-Control: no-store, no-cache, must-revalidate\r\n"
                                   "Pragma: no-cache\r\n"
                                   "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n";
inline const std::string kStarted = kHeader + "{\"success\": true, \"data\": {}, \"redirectIP\":\"\"}";
inline const std::string kUnlocked = kHeader + "{\"success\": true, \"data\": {}}";

// What the file of the progress holds, and with an error also the answer to the request.
[[nodiscard]] std::string error_body(const char *sec, const char *key, int line);
[[nodiscard]] std::string stage_body(const std::string &stage);
[[nodiscard]] std::string success_body(const char *hostname);

// A machine with one blank disk.
void install_machine(Sandbox &box);
// The same, which trusts the firmware's patches.
void install_machine(Sandbox &box, const Firmware &firmware);

// A form with a host name, a password and a patch, in parts between "B".
[[nodiscard]] std::string patch_form(const std::string &patch, const std::string &field = "filename");

// A request as a web server hands it to a role.
[[nodiscard]] RunOptions cgi_request(const std::string &query, const std::string &body);

// Waits until the child of a request that was taken has gone.
void install_child_wait(const Sandbox &box);

void expect_unlocked(Sandbox &box);
