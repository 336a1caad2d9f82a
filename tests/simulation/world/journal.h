// What happens in a run, one line each. Two runs are the same if their journals are.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>

namespace sim {

/// Where lines go besides the sum; null: nowhere.
void OpenJournal(std::FILE* file);
void CloseJournal();

/// A piece of a line: a text or a number. It becomes readable only in the file.
class Piece {
public:
    Piece(const char* text) : text_(text) {}
    Piece(const std::string& text) : text_(text) {}
    Piece(uint64_t number) : number_(number), isNumber_(true) {}

private:
    friend void Note(std::initializer_list<Piece> pieces, std::string_view bytes);

    std::string_view text_;
    uint64_t number_{};
    bool isNumber_ = false;
};

/// Adds a line, with the time and the thread.
void Note(std::initializer_list<Piece> pieces, std::string_view bytes = {});

/// A sum over all lines until now.
uint64_t JournalSum();

/// Bytes as text: printable ones as they are.
std::string Shown(std::string_view bytes, size_t most = 200);

/// Ends the run: something is not as it must be.
[[noreturn]] void Violation(const std::string& text);

}  // namespace sim
