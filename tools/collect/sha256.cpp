// SHA-256 through libcrypto.
#include "sha256.h"

#include <array>
#include <new>

namespace ominspect::collect {

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
    if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
        throw std::bad_alloc();
    }
}

void Sha256::Add(const void* data, std::size_t size) {
    (void)EVP_DigestUpdate(context_.get(), data, size);  // a set-up SHA-256 takes everything
}

std::string Sha256::Hex() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int size = 0;
    (void)EVP_DigestFinal_ex(context_.get(), sum.data(), &size);
    std::string hex;
    for (unsigned int i = 0; i < size; ++i) {
        constexpr const char* kDigits = "0123456789abcdef";
        hex += kDigits[sum.at(i) >> 4U];
        hex += kDigits[sum.at(i) & 15U];
    }
    return hex;
}

}  // namespace ominspect::collect
