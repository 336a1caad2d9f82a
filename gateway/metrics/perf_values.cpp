// Small units are divided, so that a decimal number stays the one that a person expects.
#include "metrics/perf_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "ominspect/perfdata.h"

namespace ominspect::gateway {
namespace {

std::optional<double> NumberOf(std::string_view text) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error == std::errc() && rest == end && std::isfinite(number);
    return isNumber ? std::optional(number) : std::nullopt;
}

}  // namespace

RangeBounds BoundsOf(std::string_view range) {
    const std::size_t colon = range.find(':');
    if (colon == std::string_view::npos) {
        return {std::nullopt, NumberOf(range)};
    }
    // Without a number there is no bound: "~", nothing behind the colon, or the "@" before the first one.
    return {NumberOf(range.substr(0, colon)),
            range.starts_with('@') ? std::nullopt : NumberOf(range.substr(colon + 1))};
}

PerfValues::Value PerfValues::InBaseUnit(const client::PerfValue& value) {
    struct Unit {
        std::string_view name;
        Kind kind;
        double divisor;
        double factor;
    };
    static constexpr double kKilo = 1024;
    static constexpr std::array<Unit, 10> kUnits{{
        {"s", Kind::kSeconds, 1, 1},
        {"ms", Kind::kSeconds, 1e3, 1},
        {"us", Kind::kSeconds, 1e6, 1},
        {"%", Kind::kRatio, 100, 1},
        {"B", Kind::kBytes, 1, 1},
        {"KB", Kind::kBytes, 1, kKilo},
        {"MB", Kind::kBytes, 1, kKilo * kKilo},
        {"GB", Kind::kBytes, 1, kKilo * kKilo * kKilo},
        {"TB", Kind::kBytes, 1, kKilo * kKilo * kKilo * kKilo},
        {"c", Kind::kTotal, 1, 1},
    }};
    static constexpr Unit kOther{"", Kind::kPlain, 1, 1};
    const auto* const found =
        std::find_if(kUnits.begin(), kUnits.end(), [&](const Unit& one) { return one.name == value.unit; });
    const Unit& unit = found == kUnits.end() ? kOther : *found;
    const auto converted = [&unit](double number) { return number / unit.divisor * unit.factor; };

    Value base{unit.kind, value.label, unit.kind == Kind::kPlain ? value.unit : "", converted(value.value), {}};
    const RangeBounds warn = BoundsOf(value.warn);
    const RangeBounds crit = BoundsOf(value.crit);
    for (const auto& [name, bound] :
         {std::pair("warn_lower", warn.lower), std::pair("warn_upper", warn.upper), std::pair("crit_lower", crit.lower),
          std::pair("crit_upper", crit.upper), std::pair("min", value.min), std::pair("max", value.max)}) {
        if (bound) {
            base.limits.push_back({name, converted(*bound)});
        }
    }
    return base;
}

bool PerfValues::Set(const std::string& process, const client::PerfData& perfData) {
    if (const auto before = items_.find(perfData.item); before != items_.end()) {
        count_ -= before->second.values.size();
        items_.erase(before);
    }
    // Two samples of one name and with the same labels would spoil the whole document.
    Item item{process, {}};
    for (const client::PerfValue& one : perfData.values) {
        Value value = InBaseUnit(one);
        const bool isThere = std::any_of(item.values.begin(), item.values.end(), [&](const Value& other) {
            return other.kind == value.kind && other.label == value.label && other.unit == value.unit;
        });
        if (!isThere) {
            item.values.push_back(std::move(value));
        }
    }
    if (count_ + item.values.size() > kMost) {
        return false;
    }
    if (!item.values.empty()) {
        count_ += item.values.size();
        items_[perfData.item] = std::move(item);
    }
    return true;
}

void PerfValues::Retain(const std::function<bool(const std::string& process, const std::string& item)>& isOwner) {
    std::erase_if(items_, [&](const auto& one) {
        const bool isGone = !isOwner(one.second.process, one.first);
        count_ -= isGone ? one.second.values.size() : 0;
        return isGone;
    });
}

bool PerfValues::IsFull() const {
    return count_ + OM_INSPECT_PERF_SLOTS > kMost;
}

void PerfValues::Print(Exposition& out) const {
    struct Family {
        Kind kind;
        MetricType type;
        const char* name;
        const char* help;
        const char* limits;
    };
    static constexpr std::array<Family, 5> kFamilies{{
        {Kind::kSeconds, MetricType::kGauge, "ominspect_perfdata_seconds", "A time that the item's last run measured.",
         "ominspect_perfdata_limit_seconds"},
        {Kind::kBytes, MetricType::kGauge, "ominspect_perfdata_bytes", "A size that the item's last run measured.",
         "ominspect_perfdata_limit_bytes"},
        {Kind::kRatio, MetricType::kGauge, "ominspect_perfdata_ratio",
         "A part that the item's last run measured; 1 is the whole.", "ominspect_perfdata_limit_ratio"},
        {Kind::kTotal, MetricType::kCounter, "ominspect_perfdata_total",
         "A count that only rises, as the item's last run saw it.", "ominspect_perfdata_limit_events"},
        {Kind::kPlain, MetricType::kGauge, "ominspect_perfdata_value",
         "What the item's last run measured, in a unit of its own or none.", "ominspect_perfdata_limit_value"},
    }};
    for (const Family& family : kFamilies) {
        out.Family(family.name, family.type, family.help);
        ForEach(family.kind, [&out](const std::string& item, const Value& value) {
            out.Sample({{"item", item}, {"label", value.label}, {"unit", value.unit}}, value.value);
        });
        out.Family(family.limits, MetricType::kGauge,
                   "Its limits: warn_lower, warn_upper, crit_lower, crit_upper, min, max.");
        ForEach(family.kind, [&out](const std::string& item, const Value& value) {
            for (const Limit& limit : value.limits) {
                out.Sample({{"item", item}, {"label", value.label}, {"unit", value.unit}, {"limit", limit.name}},
                           limit.value);
            }
        });
    }
}

void PerfValues::ForEach(Kind kind,
                         const std::function<void(const std::string& item, const Value& value)>& print) const {
    for (const auto& [name, item] : items_) {
        for (const Value& value : item.values) {
            if (value.kind == kind) {
                print(name, value);
            }
        }
    }
}

}  // namespace ominspect::gateway
