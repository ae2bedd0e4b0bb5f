#include "tests/support/https_server.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/box_links.h"

static void loopback_up(const Sandbox &box)
{
    EXPECT_TRUE(BoxLinks(box).set("lo", true));
}

UniqueFd loopback_listen(const Sandbox &box, uint16_t port)
{
    loopback_up(box);
    UniqueFd fd(box.socket(AF_INET, SOCK_STREAM));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd.get(), 8), 0);
    return fd;
}

HttpsServer::HttpsServer(Sandbox &box, const char *form)
{
    if (access("/usr/bin/openssl", X_OK) != 0 || access("/usr/lib/x86_64-linux-gnu/libcurl.so.4", R_OK) != 0)
        return;
    loopback_up(box);
    box.host_program("/usr/bin/openssl");
    box.file("/feed/openssl.cnf", "[req]\ndistinguished_name=dn\n[dn]\n");
    const char kRequest[] = "openssl req -x509 -nodes -config openssl.cnf -newkey ec -pkeyopt "
                            "ec_paramgen_curve:prime256v1 -subj /CN=box -addext subjectAltName=IP:127.0.0.1 -days 2 "
                            "-keyout key.pem -out certificate.pem";
    const Result made = box.run({"/bin/sh", "-c", kRequest}, {.cwd = "/feed", .leaves = {"/feed/*"}});
    EXPECT_EQ(made.exit_status, 0) << made.err;
    box.file(kTrustedCertificates, box.read_file("/feed/certificate.pem"));
    process_ = box.start(
        {"/usr/bin/openssl", "s_server", "-accept", "8443", form, "-cert", "certificate.pem", "-key", "key.pem"},
        {.cwd = "/feed", .seconds = 120, .leaves = {"*"}});
    for (int i = 0; i < 1000 && process_->out().find("ACCEPT") == std::string::npos; i++)
        usleep(20000);
}

HttpsServer::~HttpsServer()
{
    if (!process_)
        return;
    process_->signal(SIGKILL);
    static_cast<void>(process_->wait());
}
