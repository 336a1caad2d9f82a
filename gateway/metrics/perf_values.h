// What the items have measured, in the base units of Prometheus.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/exposition.h"
#include "ominspect/client/types.h"

namespace ominspect::gateway {

class PerfValues {
public:
    // All items together; names and labels come from outside.
    static constexpr std::size_t kMost = 4096;

    // Takes what a process says of an item, instead of what was said before. False: these would be too many values.
    bool Set(const std::string& process, const client::PerfData& perfData);

    // Keeps what `isOwner` is true for.
    void Retain(const std::function<bool(const std::string& process, const std::string& item)>& isOwner);

    // Whether an item that measures as much as it may would no longer find room.
    bool IsFull() const;

    void Print(Exposition& out) const;

private:
    // Of a metric's name: each has a family of values and one of limits.
    enum class Kind { kSeconds, kBytes, kRatio, kTotal, kPlain };
    struct Limit {
        const char* name;  // "warn_lower", "warn_upper", "crit_lower", "crit_upper", "min", "max"
        double value;
    };
    struct Value {
        Kind kind = Kind::kPlain;
        std::string label;
        std::string unit;  // empty when the metric's name says it
        double value = 0;
        std::vector<Limit> limits;
    };
    struct Item {
        std::string process;
        std::vector<Value> values;
    };

    static Value InBaseUnit(const client::PerfValue& value);
    void ForEach(Kind kind, const std::function<void(const std::string& item, const Value& value)>& print) const;

    std::map<std::string, Item> items_;
    std::size_t count_ = 0;
};

// The bounds that a range of the plugin convention names: outside of them something is wrong. A range that means the
// inside ("@10:20") has none here.
struct RangeBounds {
    std::optional<double> lower;
    std::optional<double> upper;
};
RangeBounds BoundsOf(std::string_view range);

}  // namespace ominspect::gateway
