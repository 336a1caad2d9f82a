// On a terminal everything is said at the end, in the table.
#include "display.h"

#include <array>
#include <cstdio>

#include "common/table.h"
#include "common/text.h"

namespace ominspect::collect {
namespace {

std::string Position(std::size_t index, std::size_t count) {
    return '[' + std::to_string(index + 1) + '/' + std::to_string(count) + "] ";
}

std::string Amount(std::uint64_t files, std::uint64_t bytes) {
    return std::to_string(files) + (files == 1 ? " file, " : " files, ") + text::Size(static_cast<double>(bytes));
}

std::string Seconds(std::chrono::milliseconds time) {
    std::array<char, 32> out{};
    (void)std::snprintf(out.data(), out.size(), "%.1f s", static_cast<double>(time.count()) / 1000);
    return out.data();
}

std::string Remark(const EntryReport& report) {
    const std::string word = OutcomeWord(report.outcome);
    return report.remark.empty() ? word : word + ": " + text::Escaped(report.remark);
}

}  // namespace

void Display::Show(const Progress& progress) {
    if (!IsDue()) {
        return;
    }
    std::string line = Position(progress.index, progress.count) + text::Escaped(progress.entry.source) + ": " +
                       Amount(progress.files, progress.bytes);
    if (progress.left) {
        line += ", " + Seconds(*progress.left) + " left";
    }
    screen_.Draw({line});
}

void Display::ShowDone(std::size_t index, const EntryReport& report) const {
    if (terminal_) {
        return;
    }
    (void)std::fprintf(stderr, "%s%s: %s, %s, %s\n", Position(index, count_).c_str(),
                       text::Escaped(report.entry.source).c_str(), Amount(report.files, report.bytes).c_str(),
                       Seconds(report.duration).c_str(), Remark(report).c_str());
}

void Display::ShowPacking(const PackedTree& packed) {
    if (IsDue()) {
        screen_.Draw({"packing: " + Amount(packed.files.size(), packed.bytes)});
    }
}

bool Display::IsDue() {
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_ || now < next_) {
        return false;
    }
    next_ = now + kRedrawPeriod;
    return true;
}

std::string SummaryTable(const std::vector<EntryReport>& reports) {
    std::vector<std::vector<std::string>> rows{{"ENTRY", "FILES", "BYTES", "TIME", "REMARK"}};
    for (const EntryReport& report : reports) {
        rows.push_back({text::Escaped(report.entry.source), std::to_string(report.files), std::to_string(report.bytes),
                        Seconds(report.duration), Remark(report)});
    }
    return text::Table(rows);
}

}  // namespace ominspect::collect
