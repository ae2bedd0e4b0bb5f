// A true HTTPS server in a box, at https://127.0.0.1:8443/, whose certificate the box trusts.
#pragma once

#include <optional>

#include "autocleanup/unique.h"
#include "tests/support/sandbox.h"

// Where the box keeps the certificates that it trusts.
inline constexpr char kTrustedCertificates[] = "/etc/ssl/certs/ca-certificates.crt";

// A socket that listens at 127.0.0.1 of the box, whose loopback interface is up then.
[[nodiscard]] UniqueFd loopback_listen(const Sandbox &box, uint16_t port);

class HttpsServer
{
  public:
    // Serves the files below /feed of the box, by their path and query.
    //   form  "-WWW": the files are contents; "-HTTP": they are whole answers, headers and all
    HttpsServer(Sandbox &box, const char *form);
    HttpsServer(const HttpsServer &) = delete;
    HttpsServer &operator=(const HttpsServer &) = delete;
    ~HttpsServer();

    // False where the host lacks what a server and its client need.
    [[nodiscard]] bool runs() const { return process_.has_value(); }

  private:
    std::optional<Process> process_{};
};
