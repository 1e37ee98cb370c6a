#pragma once

#include "TarnCore/Base64.h"

#include <memory>
#include <openssl/evp.h>
#include <string>
#include <string_view>

namespace tarn {

/// A throw-away Ed25519 key.
class Signer {
public:
    std::string publicKey() const {
        std::string bytes(32, '\0');
        std::size_t size = bytes.size();
        EVP_PKEY_get_raw_public_key(key_.get(), reinterpret_cast<unsigned char *>(bytes.data()), &size);
        return base64::encode(bytes);
    }
    /// In base64.
    std::string sign(std::string_view data) const {
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                              EVP_MD_CTX_free);
        std::string bytes(64, '\0');
        std::size_t size = bytes.size();
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
        EVP_DigestSign(context.get(), reinterpret_cast<unsigned char *>(bytes.data()), &size,
                       reinterpret_cast<const unsigned char *>(data.data()), data.size());
        return base64::encode(bytes);
    }

private:
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_{EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"),
                                                             EVP_PKEY_free};
};

} // namespace tarn
