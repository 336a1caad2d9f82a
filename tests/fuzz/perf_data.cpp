// What a monitoring plugin prints: what is made of it keeps its promises.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "input.h"
#include "items/mapping.h"
#include "items/perfdata.h"
#include "ominspect/perfdata.h"

namespace {

// Whether a field's text ends within it, has no control character, and zeros follow: the whole field is sent.
template <std::size_t size>
bool IsField(const char (&field)[size]) {
    const char* const end = std::find(std::begin(field), std::end(field), '\0');
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    return end != std::end(field) && std::none_of(std::begin(field), end, isControl) &&
           std::all_of(end, std::end(field), [](char c) { return c == '\0'; });
}

// What a plugin that ends with this status has printed.
void CheckResult(const std::string& output, int code, bool isError) {
    ominspect::items::CommandOutcome outcome;
    outcome.end = ominspect::items::CommandOutcome::End::kExited;
    outcome.code = code;
    (isError ? outcome.output.err : outcome.output.out) = output;
    const auto result = ominspect::items::MakeResult("item", "/bin/plugin", std::chrono::seconds(1), outcome);
    fuzz::Check(IsField(result.name) && IsField(result.status) && IsField(result.text));
    fuzz::Check(result.name == std::string("item") && result.status[0] != '\0' && result.text[0] != '\0');
}

}  // namespace

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
    const std::string output(reinterpret_cast<const char*>(data), size);
    for (int code = 0; code < 4; ++code) {
        CheckResult(output, code, false);
        CheckResult(output, code, true);
    }
    return 0;
}
