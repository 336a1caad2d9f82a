// The sum is like FNV-1a, over words.
#include "world/journal.h"

#include <unistd.h>

#include <cstring>

#include "world/outcome.h"
#include "world/scheduler.h"

namespace sim {

namespace {

std::FILE* g_file = nullptr;
uint64_t g_sum = 0xcbf29ce484222325;

void Add(uint64_t word) {
    g_sum = (g_sum ^ word) * 0x100000001b3;
    g_sum ^= g_sum >> 29U;
}

void Add(std::string_view bytes) {
    while (bytes.size() >= sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, bytes.data(), sizeof word);
        Add(word);
        bytes.remove_prefix(sizeof word);
    }
    uint64_t word = 0;
    (void)bytes.copy(reinterpret_cast<char*>(&word), sizeof word);
    Add(word ^ bytes.size() << 56U);
}

}  // namespace

void OpenJournal(std::FILE* file) {
    g_file = file;
    (void)std::setvbuf(file, nullptr, _IOLBF, 0);
}

void CloseJournal() {
    if (g_file != nullptr) {
        std::fclose(g_file);
    }
}

void Note(std::initializer_list<Piece> pieces, std::string_view bytes) {
    const Thread* const me = Self();
    Add(Now());
    Add(me == nullptr ? 0 : me->number);
    for (const Piece& piece : pieces) {
        if (piece.isNumber_) {
            Add(piece.number_);
        } else {
            Add(piece.text_);
        }
    }
    Add(bytes);
    if (g_file == nullptr) {
        return;
    }
    std::string line;
    for (const Piece& piece : pieces) {
        line += piece.isNumber_ ? std::to_string(piece.number_) : piece.text_;
    }
    std::fprintf(g_file, "%llu.%06llu %s %s%s\n", static_cast<unsigned long long>(Now() / kSecond),
                 static_cast<unsigned long long>(Now() % kSecond), me == nullptr ? "-" : me->Label().c_str(),
                 line.c_str(), bytes.empty() ? "" : (" [" + Shown(bytes) + "]").c_str());
}

uint64_t JournalSum() {
    return g_sum;
}

std::string Shown(std::string_view bytes, size_t most) {
    std::string text;
    for (const char byte : bytes.substr(0, most)) {
        if (byte >= ' ' && byte < 127) {
            text += byte;
        } else if (byte == '\0') {
            text += text.ends_with("~") ? "" : "~";
        } else {
            text += '?';
        }
    }
    return text + (bytes.size() > most ? "..." : "");
}

void Violation(const std::string& text) {
    Note({"VIOLATION: ", text});
    if (g_file != nullptr) {
        std::fflush(g_file);
    }
    std::string told = text;
    if (const Thread* const me = Self()) {
        told = me->Label() + ": " + text;
    }
    TheOutcome().violated = true;
    const size_t length = std::min(told.size(), sizeof TheOutcome().text - 1);
    std::memcpy(TheOutcome().text, told.data(), length);
    TheOutcome().text[length] = '\0';
    FinishOutcome();
    _exit(1);
}

}  // namespace sim
