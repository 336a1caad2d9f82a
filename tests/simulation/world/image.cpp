// The loader knows a file by its inode, so each copy is a file of its own while it is loaded. Several processes may
// load at the same time.
#include "world/image.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace sim {

Image::Image(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        std::fprintf(stderr, "simulate: %s\n", dlerror());
        std::abort();
    }
}

void* Image::Symbol(const char* name) const {
    void* const symbol = dlsym(handle_, name);
    if (symbol == nullptr) {
        std::fprintf(stderr, "simulate: %s\n", dlerror());
        std::abort();
    }
    return symbol;
}

Images::Images(std::string path, std::string folder, size_t count)
    : path_(std::move(path)), folder_(std::move(folder)) {
    while (images_.size() < count) {
        Load();
    }
}

const Image& Images::Take() {
    if (taken_ == images_.size()) {
        Load();
    }
    return images_[taken_++];
}

void Images::Load() {
    const std::filesystem::path copy =
        std::filesystem::path(folder_) / (std::to_string(getpid()) + "." + std::to_string(images_.size()));
    std::filesystem::copy_file(path_, copy, std::filesystem::copy_options::overwrite_existing);
    images_.emplace_back(copy.string());
    std::filesystem::remove(copy);
}

}  // namespace sim
