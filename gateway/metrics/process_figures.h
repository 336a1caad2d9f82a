// What this process costs, as Prometheus's own libraries tell it of theirs.
#pragma once

namespace ominspect::gateway {

struct ProcessFigures {
    double cpuSeconds = 0;
    double residentBytes = 0;
};

ProcessFigures ReadProcessFigures();

}  // namespace ominspect::gateway
