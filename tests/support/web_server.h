// The appliance's web server in a box, at http://127.0.0.1/: lighttpd as the virtual appliance configures it, with the
// CGI roles below /cgi-bin/, and with /progress, which is kInstallProgressPath as it stands.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "autocleanup/unique.h"
#include "tests/support/sandbox.h"

struct HttpAnswer {
    int status = 0;     // 0: the connection ended before an answer
    std::string head{}; // status line and headers, in lower case
    std::string body{};
};

// A request of a client that hangs up afterwards. Headers end in "\r\n" each.
[[nodiscard]] std::string http_request(std::string_view method, std::string_view target, std::string_view headers = "",
                                       std::string_view body = "");

// All that is still to come on a connection.
[[nodiscard]] HttpAnswer http_answer(const UniqueFd &client);

class WebServer
{
  public:
    explicit WebServer(Sandbox &box);
    WebServer(const WebServer &) = delete;
    WebServer &operator=(const WebServer &) = delete;
    ~WebServer();

    // Whether the host has a lighttpd.
    [[nodiscard]] static bool available();

    // A connection over which `request` has been sent, which may be a part of one.
    [[nodiscard]] UniqueFd send(std::string_view request) const;
    [[nodiscard]] HttpAnswer ask(std::string_view request) const { return http_answer(send(request)); }

  private:
    const Sandbox &box_;
    std::optional<Process> process_{};
};

// A browser that asks for the progress all the time.
class ProgressPoll
{
  public:
    explicit ProgressPoll(const WebServer &server);
    ProgressPoll(const ProgressPoll &) = delete;
    ProgressPoll &operator=(const ProgressPoll &) = delete;
    ~ProgressPoll();

    // The bodies it saw, each that differs from the one before it.
    [[nodiscard]] std::vector<std::string> seen() const;
    // Waits until it has seen this body; a minute without fails the test.
    void wait_for(const std::string &body) const;

  private:
    const WebServer &server_;
    mutable std::mutex lock_{};
    std::vector<std::string> seen_{};
    bool is_over_ = false;
    std::thread thread_{};

    void run();
};
