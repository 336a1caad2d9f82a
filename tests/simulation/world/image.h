// Copies of a shared object that are loaded side by side, each with its own static objects: a process of the simulation
// uses one of them, once.
#pragma once

#include <string>
#include <vector>

namespace sim {

class Image {
public:
    explicit Image(const std::string& path);

    /// A function of it.
    template <typename Function>
    Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(Symbol(name));
    }

private:
    void* Symbol(const char* name) const;

    void* handle_;
};

/// The copies of one shared object, loaded in advance: processes forked from this one find them untouched.
class Images {
public:
    /// Copies go to `folder` and are removed from there at once.
    Images(const std::string& path, std::string folder, size_t count);

    /// One that was not used before; loads another if there is none.
    const Image& Take();

private:
    void Load();

    std::string loaded_;  // of the shared object: what is loaded
    std::string folder_;
    std::vector<Image> images_;
    size_t taken_ = 0;
};

}  // namespace sim
