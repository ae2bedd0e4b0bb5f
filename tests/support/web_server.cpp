#include "tests/support/web_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include "build_paths.h"
#include "install/progress.h"
#include "tests/support/box_text.h"
#include "tests/support/https_server.h"

static constexpr char kServer[] = "/usr/sbin/lighttpd", kModules[] = "/usr/lib/lighttpd",
                      kConfig[] = "/etc/lighttpd.conf";
static constexpr int kPatienceSeconds = 60;

std::string http_request(std::string_view method, std::string_view target, std::string_view headers,
                         std::string_view body)
{
    return std::string(method) + " " + std::string(target) + " HTTP/1.0\r\n" + std::string(headers) + "\r\n" +
           std::string(body);
}

HttpAnswer http_answer(const UniqueFd &client)
{
    const std::string text = descriptor_read(client.get());
    HttpAnswer answer;
    const size_t end = text.find("\r\n\r\n");
    if (end == text.npos || sscanf(text.c_str(), "HTTP/1.%*d %d ", &answer.status) != 1)
        return answer;
    answer.head = text.substr(0, end + 2);
    std::transform(answer.head.begin(), answer.head.end(), answer.head.begin(),
                   [](unsigned char letter) { return static_cast<char>(tolower(letter)); });
    answer.body = text.substr(end + 4);
    return answer;
}

bool WebServer::available()
{
    return access(kServer, X_OK) == 0;
}

static UniqueFd server_connect(const Sandbox &box)
{
    UniqueFd client(box.socket(AF_INET, SOCK_STREAM));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(80);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience = {.tv_sec = kPatienceSeconds, .tv_usec = 0};
    setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    if (connect(client.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        client.reset();
    return client;
}

WebServer::WebServer(Sandbox &box) : box_(box)
{
    loopback_up(box);
    std::stringstream config;
    config << std::ifstream(NORV_SOURCE_DIR "/lab/guest" + std::string(kConfig)).rdbuf()
           << "alias.url += (\"/progress\" => \"" << kInstallProgressPath << "\")\n"
           << "server.stat-cache-engine = \"disable\"\n"
           << "server.modules += (\"mod_setenv\")\n"; // so that a sanitizer reports where the box looks
    for (const char *sanitizer : {"ASAN", "UBSAN"})
        config << "setenv.add-environment += (\"" << sanitizer << "_OPTIONS\" => \"log_path=/.box/sanitizer\")\n";
    box.file(kConfig, config.str());
    box.directory("/usr/share/norv/web");
    box.host_file(kServer, kServer);
    box.host_file(kModules + std::string("/mod_cgi.so"), kModules + std::string("/mod_cgi.so"));
    process_ = box.start({kServer, "-D", "-f", kConfig}, {.seconds = 600, .leaves = {"*"}});
    for (int i = 0; i < 100 * kPatienceSeconds && process_->running() && !server_connect(box); i++)
        usleep(10000);
}

WebServer::~WebServer()
{
    process_->signal(SIGKILL);
    static_cast<void>(process_->wait());
}

UniqueFd WebServer::send(std::string_view request) const
{
    UniqueFd client = server_connect(box_);
    if (!client)
        ADD_FAILURE() << "no web server";
    while (!request.empty()) {
        const ssize_t count = ::send(client.get(), request.data(), request.size(), MSG_NOSIGNAL);
        if (count <= 0)
            break; // the answer tells why
        request.remove_prefix(static_cast<size_t>(count));
    }
    return client;
}

ProgressPoll::ProgressPoll(const WebServer &server) : server_(server), thread_([this] { run(); }) {}

ProgressPoll::~ProgressPoll()
{
    {
        const std::lock_guard lock(lock_);
        is_over_ = true;
    }
    thread_.join();
}

void ProgressPoll::run()
{
    const std::string request = http_request("GET", "/progress");
    for (;; usleep(5000)) {
        HttpAnswer answer = server_.ask(request);
        const std::lock_guard lock(lock_);
        if (is_over_)
            return;
        // A file that is just being written may be empty, or end early: a browser asks again.
        if (answer.status == 200 && answer.body.ends_with('}') && (seen_.empty() || seen_.back() != answer.body))
            seen_.push_back(std::move(answer.body));
    }
}

std::vector<std::string> ProgressPoll::seen() const
{
    const std::lock_guard lock(lock_);
    return seen_;
}

void ProgressPoll::wait_for(const std::string &body) const
{
    for (int i = 0; i < 100 * kPatienceSeconds; i++) {
        const std::vector<std::string> bodies = seen();
        if (std::find(bodies.begin(), bodies.end(), body) != bodies.end())
            return;
        usleep(10000);
    }
    ADD_FAILURE() << "nobody saw " << body;
}
