// The deleter of a C library's object: std::unique_ptr<sd_bus, Freed<sd_bus_unref>>.
#pragma once

namespace ominspect {

template <auto Function>
struct Freed {
    template <typename T>
    void operator()(T* object) const {
        Function(object);
    }
};

}  // namespace ominspect
