// Lines on a terminal that are drawn again and again in the same place. The control sequences are those of ECMA-48.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace ominspect {

// How often they should be drawn.
constexpr std::chrono::milliseconds kRedrawPeriod{200};

// Whether the stream goes to a terminal that understands this.
bool IsTerminal(std::FILE* stream);

// Whether colours are welcome there: on such a terminal, unless NO_COLOR is set (no-color.org).
bool WantsColours(std::FILE* stream);

// Used by one thread at a time. What was drawn last stays unless it is erased.
class LiveLines {
public:
    explicit LiveLines(std::FILE* stream) : stream_(stream) {}

    // How many lines the terminal has.
    std::size_t Height() const;

    // Puts these lines in the place of the former ones, each cut to the terminal's width, with an ellipsis.
    void Draw(const std::vector<std::string>& lines);

    // Takes them away.
    void Erase();

private:
    std::FILE* stream_;
    std::size_t drawn_ = 0;  // lines on the screen that the next drawing replaces
};

}  // namespace ominspect
