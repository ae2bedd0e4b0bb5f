#include "platform/codesign/digest.h"

#include <cerrno>
#include <fcntl.h>
#include <mbedtls/pk.h>
#include <unistd.h>

#include "autocleanup/unique.h"

namespace codesign
{

static constexpr size_t kReadBytes = 128 * 1024;
static constexpr size_t kKeyFileLimit = 16 * 1024;

Sha256::Sha256()
{
    mbedtls_sha256_init(&context_);
    mbedtls_sha256_starts_ret(&context_, 0);
}

Sha256::~Sha256()
{
    mbedtls_sha256_free(&context_);
}

void Sha256::update(const void *bytes, size_t count)
{
    mbedtls_sha256_update_ret(&context_, static_cast<const unsigned char *>(bytes), count);
}

Digest Sha256::finish()
{
    Digest digest;
    mbedtls_sha256_finish_ret(&context_, digest.data());
    return digest;
}

Digest digest_of(std::string_view bytes)
{
    Sha256 sum;
    sum.update(bytes.data(), bytes.size());
    return sum.finish();
}

bool digest_read(int fd, Digest *out, uint64_t *count)
{
    std::string buffer(kReadBytes, '\0');
    Sha256 sum;
    *count = 0;
    for (;;) {
        const ssize_t got = read(fd, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            break;
        sum.update(buffer.data(), static_cast<size_t>(got));
        *count += static_cast<uint64_t>(got);
    }
    *out = sum.finish();
    return true;
}

std::string hex_of(const void *bytes, size_t count)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    const auto *byte = static_cast<const uint8_t *>(bytes);
    std::string text;
    for (size_t i = 0; i < count; i++) {
        text += kDigits[byte[i] >> 4];
        text += kDigits[byte[i] & 0xf];
    }
    return text;
}

static int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool hex_decode(std::string_view text, std::string *out)
{
    out->clear();
    if (text.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_value(text[i]), low = hex_value(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        *out += static_cast<char>(high << 4 | low);
    }
    return true;
}

bool file_read(const std::string &path, size_t limit, std::string *out)
{
    const UniqueFile file(fopen(path.c_str(), "re"));
    if (!file)
        return false;
    out->resize(limit + 1);
    const size_t count = fread(out->data(), 1, out->size(), file.get());
    const bool is_whole = count <= limit && ferror(file.get()) == 0;
    out->resize(is_whole ? count : 0);
    return is_whole;
}

bool signature_is_good(const std::string &key_folder, int key_type, std::string_view message,
                       std::string_view signature)
{
    std::string pem;
    if (!file_read(key_folder + "/" + std::to_string(key_type) + ".pem", kKeyFileLimit, &pem))
        return false;
    const Digest digest = digest_of(message);
    mbedtls_pk_context key;
    mbedtls_pk_init(&key);
    const bool is_good =
        mbedtls_pk_parse_public_key(&key, reinterpret_cast<const unsigned char *>(pem.c_str()), pem.size() + 1) == 0 &&
        mbedtls_pk_verify(&key, MBEDTLS_MD_SHA256, digest.data(), digest.size(),
                          reinterpret_cast<const unsigned char *>(signature.data()), signature.size()) == 0;
    mbedtls_pk_free(&key);
    return is_good;
}

} // namespace codesign
