// What a monitoring plugin prints: what is made of it keeps its promises.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "items/perfdata.h"
#include "ominspect/perfdata.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = ominspect::items::PerfDataOf({reinterpret_cast<const char*>(data), size});
    const auto values = ominspect::items::ParsePerfData(text);
    if (values.size() > OM_INSPECT_PERF_SLOTS) {
        __builtin_trap();
    }
    for (const auto& value : values) {
        if (value.label.empty() || value.label.size() >= OM_INSPECT_PERF_LABEL_SIZE || !std::isfinite(value.value)) {
            __builtin_trap();
        }
    }
    if (ominspect::items::EncodePerfData("item", values).size() !=
        sizeof(OmInspectPerfHead) + values.size() * sizeof(OmInspectPerfValue)) {
        __builtin_trap();
    }
    return 0;
}
