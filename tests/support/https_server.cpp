#include "tests/support/https_server.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

void loopback_up(const Sandbox &box)
{
    const int fd = box.socket(AF_INET, SOCK_DGRAM);
    ifreq request = {};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = IFF_UP;
    EXPECT_EQ(ioctl(fd, SIOCSIFFLAGS, &request), 0);
    close(fd);
}

HttpsServer::HttpsServer(Sandbox &box, const char *form)
{
    if (access("/usr/bin/openssl", X_OK) != 0 || access("/usr/lib/x86_64-linux-gnu/libcurl.so.4", R_OK) != 0)
        return;
    loopback_up(box);
    box.host_program("/usr/bin/openssl");
    box.file("/feed/openssl.cnf", "[req]\ndistinguished_name=dn\n[dn]\n");
    std::vector<std::string> request = {"/usr/bin/openssl", "req", "-x509", "-nodes"};
    for (const char *word :
         {"-config", "/feed/openssl.cnf", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-subj",
          "/CN=box", "-addext", "subjectAltName=IP:127.0.0.1", "-days", "2", "-keyout", "/feed/key.pem", "-out",
          "/feed/certificate.pem"})
        request.emplace_back(word);
    const Result made = box.run(request, {.leaves = {"/feed/*"}});
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
