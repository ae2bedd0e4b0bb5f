// SHA-256 digests and signatures over them: ECDSA on the curve P-256, keys as PEM texts. The primitives are mbed TLS's.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mbedtls/sha256.h>
#include <string>
#include <string_view>

namespace codesign
{

using Digest = std::array<uint8_t, 32>;

class Sha256
{
  public:
    Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;
    ~Sha256();
    void update(const void *bytes, size_t count);
    [[nodiscard]] Digest finish();

  private:
    mbedtls_sha256_context context_;
};

[[nodiscard]] Digest digest_of(std::string_view bytes);

// Digest of what a descriptor yields from where it stands to its end; `count` receives the bytes. False when it cannot
// be read.
[[nodiscard]] bool digest_read(int fd, Digest *out, uint64_t *count);

[[nodiscard]] std::string hex_of(const void *bytes, size_t count);
[[nodiscard]] inline std::string hex_of(const Digest &digest)
{
    return hex_of(digest.data(), digest.size());
}
// Decodes lower-case hexadecimal text. False when it is none.
[[nodiscard]] bool hex_decode(std::string_view text, std::string *out);

// The whole of a file of at most `limit` bytes.
[[nodiscard]] bool file_read(const std::string &path, size_t limit, std::string *out);

// Whether `signature`, in DER, is that of the message by the key in <key_folder>/<key_type>.pem. No such key: false.
[[nodiscard]] bool signature_is_good(const std::string &key_folder, int key_type, std::string_view message,
                                     std::string_view signature);

} // namespace codesign
