// What a collection shows.
#include "display.h"

#include <array>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

#include "text/table.h"
#include "text/text.h"

namespace ominspect::collect {
namespace {

constexpr std::chrono::milliseconds kRedraw{200};

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

std::size_t TerminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// The beginning of a line that fits into so many columns.
std::string FirstColumns(const std::string& line, std::size_t columns) {
    std::string cut(text::Cut(line, line.size()));
    for (std::size_t bytes = line.size(); text::WidthOf(cut) > columns; --bytes) {
        cut = text::Cut(line, bytes);
    }
    return cut;
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
    Draw(line);
}

void Display::ShowDone(std::size_t index, const EntryReport& report) const {
    if (terminal_) {
        return;  // the table comes at the end
    }
    (void)std::fprintf(stderr, "%s%s: %s, %s, %s\n", Position(index, count_).c_str(),
                       text::Escaped(report.entry.source).c_str(), Amount(report.files, report.bytes).c_str(),
                       Seconds(report.duration).c_str(), Remark(report).c_str());
}

void Display::ShowPacking(const PackedTree& packed) {
    if (IsDue()) {
        Draw("packing: " + Amount(packed.files.size(), packed.bytes));
    }
}

void Display::Clear() {
    if (drawn_) {
        (void)std::fputs("\r\x1B[K", stderr);
    }
    drawn_ = false;
}

bool Display::IsDue() {
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_ || now < next_) {
        return false;
    }
    next_ = now + kRedraw;
    return true;
}

void Display::Draw(const std::string& line) {
    drawn_ = true;
    (void)std::fprintf(stderr, "\r\x1B[K%s", FirstColumns(line, TerminalWidth() - 1).c_str());
    (void)std::fflush(stderr);
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
