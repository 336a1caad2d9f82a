// What was measured, in base units, with its limits.
#include "metrics/perf_values.h"

#include <gtest/gtest.h>

#include <string>

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

std::string Printed(const PerfValues& values) {
    Exposition out;
    values.Print(out);
    std::string samples;
    const std::string text = out.Take();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at) + 1;
        samples += text[at] == '#' ? "" : text.substr(at, end - at);
        at = end;
    }
    return samples;
}

// One value of the item "i" with the label "l".
std::string Shown(double number, const std::string& unit) {
    PerfValues values;
    EXPECT_TRUE(values.Set("p", {"i", {{"l", number, unit, "", "", {}, {}}}}));
    return Printed(values);
}

TEST(PerfValues, HaveBaseUnits) {
    EXPECT_EQ(Shown(1.5, "s"), "ominspect_perfdata_seconds{item=\"i\",label=\"l\"} 1.5\n");
    EXPECT_EQ(Shown(57, "ms"), "ominspect_perfdata_seconds{item=\"i\",label=\"l\"} 0.057\n");
    EXPECT_EQ(Shown(33, "us"), "ominspect_perfdata_seconds{item=\"i\",label=\"l\"} 3.3e-05\n");
    EXPECT_EQ(Shown(57, "%"), "ominspect_perfdata_ratio{item=\"i\",label=\"l\"} 0.57\n");
    EXPECT_EQ(Shown(3, "B"), "ominspect_perfdata_bytes{item=\"i\",label=\"l\"} 3\n");
    EXPECT_EQ(Shown(3, "KB"), "ominspect_perfdata_bytes{item=\"i\",label=\"l\"} 3072\n");
    EXPECT_EQ(Shown(3, "MB"), "ominspect_perfdata_bytes{item=\"i\",label=\"l\"} 3145728\n");
    EXPECT_EQ(Shown(3, "GB"), "ominspect_perfdata_bytes{item=\"i\",label=\"l\"} 3221225472\n");
    EXPECT_EQ(Shown(3, "TB"), "ominspect_perfdata_bytes{item=\"i\",label=\"l\"} 3298534883328\n");
    EXPECT_EQ(Shown(42, "c"), "ominspect_perfdata_total{item=\"i\",label=\"l\"} 42\n");
    EXPECT_EQ(Shown(7, ""), "ominspect_perfdata_value{item=\"i\",label=\"l\"} 7\n");
    EXPECT_EQ(Shown(7, "W"), "ominspect_perfdata_value{item=\"i\",label=\"l\",unit=\"W\"} 7\n");
    EXPECT_EQ(Shown(7, "S"), "ominspect_perfdata_value{item=\"i\",label=\"l\",unit=\"S\"} 7\n") << "no seconds";
}

TEST(PerfValues, HaveLimitsInTheSameUnit) {
    PerfValues values;
    EXPECT_TRUE(values.Set("p", {"i", {{"t", 5, "ms", "10", "5:20", 0, 1000}, {"n", 1, "W", "2:", "", {}, {}}}}));
    EXPECT_EQ(Printed(values),
              "ominspect_perfdata_seconds{item=\"i\",label=\"t\"} 0.005\n"
              "ominspect_perfdata_limit_seconds{item=\"i\",label=\"t\",limit=\"warn_upper\"} 0.01\n"
              "ominspect_perfdata_limit_seconds{item=\"i\",label=\"t\",limit=\"crit_lower\"} 0.005\n"
              "ominspect_perfdata_limit_seconds{item=\"i\",label=\"t\",limit=\"crit_upper\"} 0.02\n"
              "ominspect_perfdata_limit_seconds{item=\"i\",label=\"t\",limit=\"min\"} 0\n"
              "ominspect_perfdata_limit_seconds{item=\"i\",label=\"t\",limit=\"max\"} 1\n"
              "ominspect_perfdata_value{item=\"i\",label=\"n\",unit=\"W\"} 1\n"
              "ominspect_perfdata_limit_value{item=\"i\",label=\"n\",unit=\"W\",limit=\"warn_lower\"} 2\n");
}

TEST(PerfValues, RangesNameBounds) {
    const auto shown = [](std::string_view range) {
        const RangeBounds bounds = BoundsOf(range);
        return (bounds.lower ? MetricNumber(*bounds.lower) : "") + ".." +
               (bounds.upper ? MetricNumber(*bounds.upper) : "");
    };
    EXPECT_EQ(shown(""), "..");
    EXPECT_EQ(shown("10"), "..10");
    EXPECT_EQ(shown("-1.5"), "..-1.5");
    EXPECT_EQ(shown("10:"), "10..");
    EXPECT_EQ(shown("~:10"), "..10");
    EXPECT_EQ(shown("10:20"), "10..20");
    EXPECT_EQ(shown(":20"), "..20");
    EXPECT_EQ(shown("@10:20"), "..");
    EXPECT_EQ(shown("@10"), "..");
    EXPECT_EQ(shown("1:2:3"), "1..");
    EXPECT_EQ(shown("inf:nan"), "..");
    EXPECT_EQ(shown("1e999"), "..");
}

TEST(PerfValues, StandInThePlaceOfThoseBefore) {
    PerfValues values;
    EXPECT_TRUE(values.Set("p", {"i", {{"a", 1, "s", "", "", {}, {}}, {"b", 2, "s", "", "", {}, {}}}}));
    EXPECT_TRUE(values.Set("p", {"i", {{"b", 3, "s", "", "", {}, {}}}}));
    EXPECT_EQ(Printed(values), "ominspect_perfdata_seconds{item=\"i\",label=\"b\"} 3\n");
    EXPECT_TRUE(values.Set("p", {"i", {}}));
    EXPECT_EQ(Printed(values), "");
}

TEST(PerfValues, NeverShowASampleTwice) {
    PerfValues values;
    EXPECT_TRUE(values.Set("p", {"i",
                                 {{"a", 1, "s", "", "", {}, {}},
                                  {"a", 2, "ms", "", "", {}, {}},
                                  {"a", 3, "B", "", "", {}, {}},
                                  {"a", 4, "W", "", "", {}, {}},
                                  {"a", 5, "V", "", "", {}, {}}}}));
    EXPECT_EQ(Printed(values),
              "ominspect_perfdata_seconds{item=\"i\",label=\"a\"} 1\n"
              "ominspect_perfdata_bytes{item=\"i\",label=\"a\"} 3\n"
              "ominspect_perfdata_value{item=\"i\",label=\"a\",unit=\"W\"} 4\n"
              "ominspect_perfdata_value{item=\"i\",label=\"a\",unit=\"V\"} 5\n");
}

}  // namespace
