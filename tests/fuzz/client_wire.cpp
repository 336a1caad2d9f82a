// What the server, an owner or anybody in their names sends a requester.
#include <cmath>
#include <string>

#include "input.h"
#include "ominspect/perfdata.h"
#include "wire.h"

using namespace ominspect::client;

namespace {

bool Fits(const std::string& text, std::size_t field) {
    return text.size() < field && text.find('\0') == std::string::npos;
}

bool Fits(const ItemResult& result) {
    return Fits(result.name, 32) && Fits(result.status, 32) && Fits(result.text, 128);
}

void Read(wire::Bytes bytes) {
    if (const auto reply = wire::DecodeRunReply(bytes, "disk")) {
        fuzz::Check(Fits(reply->result) && reply->result.name == "disk");
    }
    if (const auto result = wire::DecodeResult(bytes)) {
        fuzz::Check(Fits(*result) && wire::ItemOf(bytes) == result->name);
        (void)wire::IsBeginning(*result);
        (void)IsUnknownItem(*result);
    }
    if (const auto list = wire::DecodeList(bytes)) {
        fuzz::Check(list->size() <= 256);
        for (const ConfiguredItem& item : *list) {
            fuzz::Check(Fits(item.name, 32));
        }
    }
    if (const auto record = wire::DecodeGroupRecord(bytes)) {
        fuzz::Check(record->items.size() <= 32 && wire::TaskOf(bytes).has_value());
    }
    if (const auto data = wire::DecodePerfData(bytes)) {
        fuzz::Check(data->values.size() <= OM_INSPECT_PERF_SLOTS);
        for (const PerfValue& value : data->values) {
            fuzz::Check(!value.label.empty() && std::isfinite(value.value));
        }
    }
    (void)wire::DecodeStateReply(bytes);
    (void)wire::DecodeGroupReply(bytes);
    (void)wire::DecodeStopReply(bytes);
    (void)wire::DecodeCount(bytes);
    (void)wire::DecodeBusy(bytes);
}

}  // namespace

// The first two bytes are a size, so that records of thousands of bytes need not be put together byte by byte.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t whole = input.Number(2) % 16384;
    const std::string_view bytes = input.Rest();
    std::vector<unsigned char> record(bytes.begin(), bytes.end());
    Read(record);
    record.resize(whole);
    Read(record);
    return 0;
}
