// The update of the disk rules, against a true HTTPS server in the box.
#include <cerrno>
#include <gtest/gtest.h>
#include <mbedtls/md5.h>
#include <optional>

#include "tests/support/https_server.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kFolder[] = "/var/lib/disk-compatibility/";
constexpr char kServer[] = "https://127.0.0.1:8443/";

std::string database(const std::string &version, const std::string &rules = "")
{
    return R"({"format": 1, "version": ")" + version + R"(", "default": {"selectable": true}, "rules": [)" + rules +
           "]}\n";
}

std::string md5(const std::string &text)
{
    unsigned char digest[16];
    mbedtls_md5_ret(reinterpret_cast<const unsigned char *>(text.data()), text.size(), digest);
    std::string shown;
    for (const unsigned char byte : digest)
        shown += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return shown;
}

// A box with a server at 127.0.0.1:8443 that serves the files of /feed and whose certificate is trusted.
class DiskRuleUpdate : public testing::Test
{
  protected:
    DiskRuleUpdate()
    {
        box_.leaves({"/var/lock/disk_rule_update.lock", "/var/lib", "/var/lib/disk-compatibility",
                     "/var/lib/disk-compatibility/*_rule.db"}); // and nothing half-made
        server_set(kServer);
    }

    // False where the host lacks what the server needs; the test has then been skipped.
    bool server_start() { return server_.emplace(box_, "-WWW").runs(); }
    void server_set(const std::string &url)
    {
        box_.file("/etc.defaults/norvinfo.conf", "disk_rule_server=\"" + url + "\"\n");
    }
    void feed(const std::string &host, const std::string &unit)
    {
        box_.file("/feed/host_rule.db", host);
        box_.file("/feed/eunit_rule.db", unit);
        box_.file("/feed/disk_rules.md5", md5(host) + "  host_rule.db\n" + md5(unit) + "  eunit_rule.db\n");
    }
    [[nodiscard]] std::string in_place_told() const
    {
        std::string shown;
        for (const std::string &name : box_.list(kFolder))
            shown += name + " " + md5(box_.read_file(kFolder + name)) + "\n";
        return shown;
    }
    static std::string placed(const std::string &host, const std::string &unit)
    {
        return "eunit_rule.db " + md5(unit) + "\nhost_rule.db " + md5(host) + "\n";
    }

    Sandbox box_;
    std::optional<HttpsServer> server_{};
};

TEST_F(DiskRuleUpdate, BringsBothDatabasesOrNone)
{
    if (!server_start())
        GTEST_SKIP() << "no openssl or no libcurl here";
    const std::string rule = R"({"model": "A*", "action": {"selectable": false}})";
    const std::string host1 = database("1"), unit1 = database("1", rule), host2 = database("2", rule);
    const auto updated = [&](const std::string &out, const std::string &in_place) {
        const Result result = box_.run({"norvdiskupdatehclport"});
        EXPECT_EQ(result.exit_status, 0) << result.err;
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(in_place_told(), in_place);
    };
    const auto refused = [&](const std::string &fault) {
        const Result result = box_.run({"norvdiskupdatehclport"});
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(fault), std::string::npos) << result.err;
        EXPECT_NE(result.log_text().find(fault), std::string::npos) << result.log_text();
    };
    feed(host1, unit1);
    updated("host_rule.db: updated to version 1\neunit_rule.db: updated to version 1\n", placed(host1, unit1));

    const std::string bad = database("2", R"({"modle": "A*", "action": {"selectable": false}})");
    const std::string large = database("2") + std::string(1 << 20, ' ');
    const struct {
        std::string host, unit;
        std::string list;  // in place of the right one
        std::string fault; // in the message
    } kRefused[] = {
        {host2, bad, "", "eunit_rule.db: rule 1: unknown key modle"},
        {host2, large, "", "more than 1048576 bytes"},
        {host2, unit1, md5(host1 + " ") + "  host_rule.db\n" + md5(unit1) + "  eunit_rule.db\n",
         "host_rule.db: checksum"},
        {host2, unit1, "<html>", "not a list of the checksums"},
    };
    for (const auto &row : kRefused) {
        feed(row.host, row.unit);
        if (!row.list.empty())
            box_.file("/feed/disk_rules.md5", row.list);
        refused(row.fault);
        EXPECT_EQ(in_place_told(), placed(host1, unit1));
    }

    feed(host2, unit1);
    box_.call({.call = "fsync", .error = EIO, .times = 1});
    refused("");
    EXPECT_EQ(in_place_told(), placed(host1, unit1));
    updated("host_rule.db: updated to version 2\neunit_rule.db: up to date\n", placed(host2, unit1));
    box_.file(std::string(kFolder) + "host_rule.db", "{"); // damaged: fetched anew
    updated("host_rule.db: updated to version 2\neunit_rule.db: up to date\n", placed(host2, unit1));
    box_.file(kTrustedCertificates, ""); // nobody vouches for the server
    refused("https://127.0.0.1:8443/disk_rules.md5: ");
    EXPECT_EQ(in_place_told(), placed(host2, unit1));
}

TEST_F(DiskRuleUpdate, RefusesWhatItCannotTrust)
{
    const std::string host = database("1");
    box_.file(std::string(kFolder) + "host_rule.db", host);
    const struct {
        const char *url, *args, *fault;
    } cases[] = {
        {"http://127.0.0.1:8443", "", "http://127.0.0.1:8443: does not begin with https://"},
        {"https://127.0.0.1:8443", "", "https://127.0.0.1:8443/disk_rules.md5: "}, // nobody listens
        {kServer, "now", "Usage: norvdiskupdatehclport\n"},
    };
    for (const auto &[url, args, fault] : cases) {
        server_set(url);
        const Result result = box_.run(words(args, "norvdiskupdatehclport"));
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_NE(result.err.find(fault), std::string::npos) << result.err;
        EXPECT_EQ(in_place_told(), "host_rule.db " + md5(host) + "\n");
    }
}

} // namespace
