// The contract suite on the fake platform: virtual time, and its journal for what left the process.
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fake/fake.h"
#include "kivo/os_thread.h"
#include "platform_control.h"

namespace support {

namespace {

/// The arguments of a recorded call "name(a, b)", or nothing for another call.
std::optional<std::string> Arguments(const kivo::fake::Entry& entry, const std::string& name) {
    const std::string start = name + "(";
    if (entry.kind != kivo::fake::Kind::kCall || entry.text.compare(0, start.size(), start) != 0) {
        return std::nullopt;
    }
    return entry.text.substr(start.size(), entry.text.size() - start.size() - 1);
}

}  // namespace

void ContractTest::SetUp() {
    kivo::fake::Reset();
}

void ContractTest::TearDown() {
    EXPECT_TRUE(kivo::fake::Finish());
}

bool WaitFor(const std::function<bool()>& condition) {
    for (int seconds = 0; seconds < 10000; ++seconds) {
        if (condition()) {
            return true;
        }
        OsSleep(1);
    }
    return condition();
}

uint64_t SystemClock() {
    return kivo::fake::Now();
}

std::vector<LogLine> LogLines(const std::string& /*fileName*/, KivoOmLogHandle handle) {
    std::vector<LogLine> lines;
    for (const kivo::fake::Entry& entry : kivo::fake::Journal()) {
        if (entry.kind == kivo::fake::Kind::kLog && entry.handle == handle) {
            LogLine& line = lines.emplace_back(LogLine{entry.level, entry.unit, {}, entry.line, entry.text});
            if (entry.module != 256) {
                line.module = entry.module;
            }
        }
    }
    return lines;
}

struct Monitor::Impl {
    size_t start = kivo::fake::Journal().size();
};

Monitor::Monitor() : impl_(std::make_unique<Impl>()) {}

Monitor::~Monitor() = default;

std::vector<MonitorSign> Monitor::Signs() {
    std::vector<MonitorSign> signs;
    const std::vector<kivo::fake::Entry> journal = kivo::fake::Journal();
    for (const kivo::fake::Entry& entry : std::span(journal).subspan(impl_->start)) {
        if (const auto registration = Arguments(entry, "OsMonitorProReg")) {
            signs.push_back({true, std::stoull(registration->substr(registration->rfind(' ') + 1))});
        } else if (Arguments(entry, "OsMonitorProActivate")) {
            signs.push_back({});
        }
    }
    return signs;
}

}  // namespace support
