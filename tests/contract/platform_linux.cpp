// The contract suite on the Linux libraries: real time, log files in a directory of the test, a service manager.
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "linux/log_reader.h"
#include "linux/service_manager.h"
#include "platform_control.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

namespace support {

namespace {

std::unique_ptr<TempFolder> g_logDirectory;

MonitorSign Sign(std::string_view notification) {
    constexpr std::string_view kRegistration = "READY=1\nWATCHDOG_USEC=";
    if (notification.substr(0, kRegistration.size()) == kRegistration) {
        const std::string microseconds(notification.substr(kRegistration.size()));
        return {true, std::stoull(microseconds) / 1000};
    }
    EXPECT_EQ(notification, "WATCHDOG=1");
    return {};
}

}  // namespace

void ContractTest::SetUp() {
    unsetenv("NOTIFY_SOCKET");
    g_logDirectory = std::make_unique<TempFolder>();
    setenv("KIVO_LOG_DIR", LogDirectory().c_str(), 1);
}

void ContractTest::TearDown() {
    KivoOmLogClientUnInit();
    unsetenv("KIVO_LOG_DIR");
    g_logDirectory.reset();
}

bool WaitFor(const std::function<bool()>& condition) {
    return support::Eventually(condition);
}

uint64_t SystemClock() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
}

std::filesystem::path LogDirectory() {
    return *g_logDirectory / "logs";
}

std::vector<LogLine> LogLines(const std::string& fileName, KivoOmLogHandle /*handle*/) {
    std::vector<LogLine> lines;
    for (const std::string& text : FileLines(LogDirectory() / fileName)) {
        const std::optional<ParsedLine> parsed = Parse(text);
        EXPECT_TRUE(parsed) << "no log line: " << text;
        lines.push_back(parsed.value_or(ParsedLine{}).line);
    }
    return lines;
}

struct Monitor::Impl {
    ServiceManager manager;
};

Monitor::Monitor() : impl_(std::make_unique<Impl>()) {}

Monitor::~Monitor() = default;

std::vector<MonitorSign> Monitor::Signs() {
    std::vector<MonitorSign> signs;
    for (const std::string& notification : impl_->manager.Notifications()) {
        signs.push_back(Sign(notification));
    }
    return signs;
}

}  // namespace support
