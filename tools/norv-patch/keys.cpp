#include "tools/norv-patch/keys.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mbedtls/ctr_drbg.h>
#include <mbedtls/ecp.h>
#include <mbedtls/entropy.h>
#include <mbedtls/pk.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"

namespace
{

constexpr size_t kPemBytes = 4096;

// A key pair and the random numbers that making and using it takes.
class Signer
{
  public:
    Signer()
    {
        mbedtls_pk_init(&pair_);
        mbedtls_entropy_init(&entropy_);
        mbedtls_ctr_drbg_init(&random_);
        is_seeded_ = mbedtls_ctr_drbg_seed(&random_, mbedtls_entropy_func, &entropy_, nullptr, 0) == 0;
    }
    Signer(const Signer &) = delete;
    Signer &operator=(const Signer &) = delete;
    ~Signer()
    {
        mbedtls_ctr_drbg_free(&random_);
        mbedtls_entropy_free(&entropy_);
        mbedtls_pk_free(&pair_);
    }

    bool generate()
    {
        return is_seeded_ && mbedtls_pk_setup(&pair_, mbedtls_pk_info_from_type(MBEDTLS_PK_ECKEY)) == 0 &&
               mbedtls_ecp_gen_key(MBEDTLS_ECP_DP_SECP256R1, mbedtls_pk_ec(pair_), mbedtls_ctr_drbg_random, &random_) ==
                   0;
    }
    bool load(const std::string &path)
    {
        std::string pem;
        return codesign::file_read(path, kPemBytes, &pem) &&
               mbedtls_pk_parse_key(&pair_, reinterpret_cast<const unsigned char *>(pem.c_str()), pem.size() + 1,
                                    nullptr, 0) == 0;
    }
    // One of the two forms as PEM; empty when that fails.
    std::string pem(int (*write)(mbedtls_pk_context *, unsigned char *, size_t))
    {
        std::string text(kPemBytes, '\0');
        if (write(&pair_, reinterpret_cast<unsigned char *>(text.data()), text.size()) != 0)
            return "";
        text.resize(strlen(text.c_str()));
        return text;
    }
    bool sign(std::string_view message, std::string *out)
    {
        const codesign::Digest digest = codesign::digest_of(message);
        size_t size = 0;
        out->resize(MBEDTLS_PK_SIGNATURE_MAX_SIZE);
        if (!is_seeded_ || mbedtls_pk_sign(&pair_, MBEDTLS_MD_SHA256, digest.data(), digest.size(),
                                           reinterpret_cast<unsigned char *>(out->data()), &size,
                                           mbedtls_ctr_drbg_random, &random_) != 0)
            return false;
        out->resize(size);
        return true;
    }

  private:
    mbedtls_pk_context pair_;
    mbedtls_entropy_context entropy_;
    mbedtls_ctr_drbg_context random_;
    bool is_seeded_;
};

std::string private_path(const std::string &folder, int key_type)
{
    return folder + "/private/" + std::to_string(key_type) + ".pem";
}

bool file_write(const std::string &path, mode_t mode, const std::string &text)
{
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (file && !text.empty() && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
        return true;
    fprintf(stderr, "norv-patch: cannot write %s: %s\n", path.c_str(), strerror(errno));
    unlink(path.c_str());
    return false;
}

bool folder_make(const std::string &path, mode_t mode)
{
    for (size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), 0755);
    if (mkdir(path.c_str(), mode) == 0 || errno == EEXIST)
        return true;
    fprintf(stderr, "norv-patch: cannot make %s: %s\n", path.c_str(), strerror(errno));
    return false;
}

} // namespace

bool keys_ensure(const std::string &folder, int key_type)
{
    const std::string private_file = private_path(folder, key_type);
    if (access(private_file.c_str(), R_OK) == 0)
        return true;
    Signer signer;
    if (!signer.generate()) {
        fprintf(stderr, "norv-patch: cannot make a key\n");
        return false;
    }
    // The private one goes last: it tells that the pair is there.
    return folder_make(folder, 0755) && folder_make(folder + "/private", 0700) &&
           file_write(folder + "/" + std::to_string(key_type) + ".pem", 0644,
                      signer.pem(mbedtls_pk_write_pubkey_pem)) &&
           file_write(private_file, 0600, signer.pem(mbedtls_pk_write_key_pem));
}

bool message_sign(const std::string &folder, int key_type, bool stranger, std::string_view message,
                  codesign::SignatureLine *out)
{
    Signer signer;
    out->key_type = key_type;
    if ((stranger ? signer.generate() : signer.load(private_path(folder, key_type))) &&
        signer.sign(message, &out->signature))
        return true;
    fprintf(stderr, "norv-patch: cannot sign with the key of type %d in %s\n", key_type, folder.c_str());
    return false;
}
