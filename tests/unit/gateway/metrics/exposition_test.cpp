// The text format of Prometheus, byte by byte.
#include "metrics/exposition.h"

#include <gtest/gtest.h>

#include <limits>

using namespace ominspect::gateway;

namespace {

std::string LabelOf(std::string_view value) {
    Exposition out;
    out.Family("a", MetricType::kGauge, "h");
    out.Sample({{"l", value}}, 1.0);
    const std::string text = out.Take();
    const std::string head = "# HELP a h\n# TYPE a gauge\na{l=\"";
    const std::string tail = "\"} 1\n";
    EXPECT_TRUE(text.starts_with(head) && text.ends_with(tail)) << text;
    return text.substr(head.size(), text.size() - head.size() - tail.size());
}

TEST(Exposition, AFamilyIsItsHelpItsTypeAndItsSamples) {
    Exposition out;
    out.Family("runs_total", MetricType::kCounter, "All runs.");
    out.Sample({}, std::uint64_t{18446744073709551615U});
    out.Sample({{"item", "disk"}, {"status", "fail"}}, std::uint64_t{0});
    out.Family("took_seconds", MetricType::kHistogram, "Times.");
    out.Sample("_bucket", {{"le", "+Inf"}}, std::uint64_t{3});
    out.Sample("_sum", {}, 0.25);
    out.Gauge("up", "Whether.", 1);
    out.Counter("lost_total", "Lost.", 7);
    out.Sample({{"a", ""}, {"b", "x"}, {"c", ""}}, std::uint64_t{9});
    out.Sample({{"a", ""}}, std::uint64_t{10});
    EXPECT_EQ(out.Take(),
              "# HELP runs_total All runs.\n"
              "# TYPE runs_total counter\n"
              "runs_total 18446744073709551615\n"
              "runs_total{item=\"disk\",status=\"fail\"} 0\n"
              "# HELP took_seconds Times.\n"
              "# TYPE took_seconds histogram\n"
              "took_seconds_bucket{le=\"+Inf\"} 3\n"
              "took_seconds_sum 0.25\n"
              "# HELP up Whether.\n"
              "# TYPE up gauge\n"
              "up 1\n"
              "# HELP lost_total Lost.\n"
              "# TYPE lost_total counter\n"
              "lost_total 7\n"
              "lost_total{b=\"x\"} 9\n"
              "lost_total 10\n");
}

TEST(Exposition, LabelsAreEscapedAndValidUtf8) {
    EXPECT_EQ(LabelOf("plain {name=1} #x"), "plain {name=1} #x");
    EXPECT_EQ(LabelOf("a\"b"), "a\\\"b");
    EXPECT_EQ(LabelOf("a\\b"), "a\\\\b");
    EXPECT_EQ(LabelOf("a\nb"), "a\\nb");
    EXPECT_EQ(LabelOf("\\n"), "\\\\n");
    EXPECT_EQ(LabelOf("k\xc3\xbc\x63he"), "k\xc3\xbc\x63he");
    EXPECT_EQ(LabelOf("a\xff\"z"), "a\xef\xbf\xbd\\\"z");
    EXPECT_EQ(LabelOf("tab\there"), "tab\there");
}

TEST(Exposition, NumbersAreTheShortestThatMeanThem) {
    EXPECT_EQ(MetricNumber(0), "0");
    EXPECT_EQ(MetricNumber(-0.5), "-0.5");
    EXPECT_EQ(MetricNumber(0.1), "0.1");
    EXPECT_EQ(MetricNumber(1763784000.125), "1763784000.125");
    EXPECT_EQ(MetricNumber(1e300), "1e+300");
    EXPECT_EQ(MetricNumber(std::numeric_limits<double>::infinity()), "+Inf");
    EXPECT_EQ(MetricNumber(-std::numeric_limits<double>::infinity()), "-Inf");
    EXPECT_EQ(MetricNumber(-std::numeric_limits<double>::quiet_NaN()), "NaN");
}

}  // namespace
