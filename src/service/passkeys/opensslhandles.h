#pragma once

#include <openssl/evp.h>

#include <memory>

namespace sorv {

// Owners of the OpenSSL objects the passkey client uses.
struct OpenSslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
};
using EvpKey = std::unique_ptr<EVP_PKEY, OpenSslFree>;
using EvpDigestContext = std::unique_ptr<EVP_MD_CTX, OpenSslFree>;

} // namespace sorv
