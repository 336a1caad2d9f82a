// What the contract suite needs of a platform beside its API. Each platform implements this once.
//
// The tests must hold where time is virtual and threads take turns: a thread that has to wait for another one does
// so with WaitFor or in a platform call, and threads come from OsPthreadCreate.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kivo/om_log_client.h"

namespace support {

/// A test that uses more of the platform than pure functions. It begins with a log client that is not
/// initialised, and ends with no thread of its own left.
class ContractTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

/// Polls until `condition` holds, while other threads and time go on; false when that takes unreasonably long.
/// Any thread may call it.
bool WaitFor(const std::function<bool()>& condition);

/// What OsGetSystemTime must say now, in ms.
uint64_t SystemClock();

/// A line as it arrived in a log.
struct LogLine {
    uint32_t level = 0;
    std::string unit;
    std::optional<uint32_t> module;
    uint32_t line = 0;
    std::string text;

    bool operator==(const LogLine&) const = default;
};

/// The lines of a log since the test began, in order.
std::vector<LogLine> LogLines(const std::string& fileName, KivoOmLogHandle handle);

/// A sign that reached the process monitor.
struct MonitorSign {
    bool registration = false;
    uint64_t timeoutMs = 0;  // of a registration

    bool operator==(const MonitorSign&) const = default;
};

/// Puts a monitor in place that the process under test can reach, until it is destroyed.
class Monitor {
public:
    Monitor();
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    /// What reached it, in order.
    std::vector<MonitorSign> Signs();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace support
