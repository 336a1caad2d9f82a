// Up to which number of the history the broker has everything: a small file of its own, written by one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/error.h"

namespace ominspect::gateway::mqtt {

class PositionFile {
public:
    PositionFile(std::string path, std::string terminal) : path_(std::move(path)), terminal_(std::move(terminal)) {}

    // 0, which is before everything, when there is no file, or one of another terminal or without sense.
    std::uint64_t Load() const;

    // Whole or not at all, whenever the process is killed.
    std::optional<Error> Save(std::uint64_t position) const;

private:
    const std::string path_;
    const std::string terminal_;
};

}  // namespace ominspect::gateway::mqtt
