// The loader knows a file by its inode, so each copy is a file of its own while it is loaded. It has only what is
// loaded (elf(5), PT_LOAD): what debuggers read is ten times as much. Several processes may load at the same time.
#include "world/image.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace sim {

namespace {

// The front of a shared object, up to the end of what is loaded.
std::string Loaded(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string object(std::istreambuf_iterator<char>(file), {});
    ElfW(Ehdr) header{};
    std::memcpy(&header, object.data(), std::min(sizeof header, object.size()));
    size_t end = 0;
    for (size_t i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) part{};
        object.copy(reinterpret_cast<char*>(&part), sizeof part, header.e_phoff + i * sizeof part);
        end = part.p_type == PT_LOAD ? std::max<size_t>(end, part.p_offset + part.p_filesz) : end;
    }
    object.resize(end);
    return object;
}

}  // namespace

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

Images::Images(const std::string& path, std::string folder, size_t count)
    : loaded_(Loaded(path)), folder_(std::move(folder)) {
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
    std::ofstream(copy, std::ios::binary) << loaded_;
    images_.emplace_back(copy.string());
    std::filesystem::remove(copy);
}

}  // namespace sim
