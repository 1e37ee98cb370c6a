#include "TarnSystem/Updates/SHA256.h"

#include "TarnSystem/Descriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <openssl/evp.h>
#include <system_error>
#include <vector>

namespace tarn {
namespace {

// Long enough that calls cost nothing, short enough to stay in the processor's cache.
constexpr std::size_t bytesAtOnce = std::size_t{256} << 10;

/// Of the library, which fails only for want of memory.
void check(int result) {
    if (result != 1)
        throw std::bad_alloc();
}

} // namespace

struct SHA256::Context {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

SHA256::SHA256() : context_(std::make_unique<Context>()) {
    check(context_->digest && EVP_DigestInit_ex(context_->digest.get(), EVP_sha256(), nullptr));
}

SHA256::~SHA256() = default;

void SHA256::update(std::string_view piece) {
    check(EVP_DigestUpdate(context_->digest.get(), piece.data(), piece.size()));
}

std::string SHA256::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned size = 0;
    check(EVP_DigestFinal_ex(context_->digest.get(), bytes.data(), &size));
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

std::string SHA256::of(const std::string &path) {
    const auto fail = [&] { throw std::system_error(errno, std::generic_category(), path); };
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        fail();
    SHA256 hash;
    std::vector<char> buffer(bytesAtOnce);
    for (;;) {
        const auto count = read(file.get(), buffer.data(), buffer.size());
        if (count == 0)
            return hash.finish();
        if (count > 0)
            hash.update({buffer.data(), static_cast<std::size_t>(count)});
        else if (errno != EINTR)
            fail();
    }
}

} // namespace tarn
