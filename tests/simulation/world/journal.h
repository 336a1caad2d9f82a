// What happens in a run, one line each. Two runs are the same if their journals are.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace sim {

/// Where lines go besides the sum; null: nowhere.
void OpenJournal(std::FILE* file);
void CloseJournal();

/// Adds a line, with the time and the thread. The bytes behind the text become readable only in the file.
void Note(std::string_view text, std::string_view bytes = {});

/// A sum over all lines until now.
uint64_t JournalSum();

/// Bytes as text: printable ones as they are.
std::string Shown(std::string_view bytes, size_t most = 200);

/// Ends the run: something is not as it must be.
[[noreturn]] void Violation(const std::string& text);

}  // namespace sim
