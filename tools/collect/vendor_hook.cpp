#include "vendor_hook.h"

#include "copy_process.h"

namespace ominspect::collect {

std::optional<VendorReport> CallVendorHook(EndSignals& signals, std::chrono::seconds limit) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds kPatience{3};
    constexpr int kTick = 200;  // milliseconds

    VendorReport report;
    const auto started = CopyProcess::StartVendorHook();
    if (!started) {
        report.remark = "its process cannot be started: " + started.Failure().text;
        return report;
    }
    CopyProcess& process = **started;
    const Clock::time_point end = Clock::now() + limit;
    bool runs = true;
    while (runs && Clock::now() < end + kPatience) {
        const int count = signals.Count();
        if (count > 1) {
            return std::nullopt;
        }
        if (count == 1 && report.remark.empty()) {
            report.remark = "interrupted";
            process.Kill();
        } else if (Clock::now() >= end && report.remark.empty()) {
            report.remark = "the time limit of " + std::to_string(limit.count()) + " s ended it";
            process.Kill();
        }
        runs = process.Watch(signals.Fd(), kTick);
    }
    report.messages = process.Messages();
    if (report.remark.empty()) {
        report.remark = process.Death();
        report.result = process.HookResult();
    }
    return report;
}

}  // namespace ominspect::collect
