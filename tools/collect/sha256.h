// SHA-256 of a stream of bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <openssl/evp.h>

namespace ominspect::collect {

// Throws std::bad_alloc when the library cannot set it up, which is when there is no memory.
class Sha256 {
public:
    Sha256();

    void Add(const void* data, std::size_t size);

    // The sum of all that was added, as 64 lower-case hexadecimal digits. Ends the stream.
    std::string Hex();

private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> context_;
};

}  // namespace ominspect::collect
