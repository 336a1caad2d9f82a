// The sum is FNV-1a.
#include "world/journal.h"

#include <unistd.h>

#include <cstring>

#include "world/outcome.h"
#include "world/scheduler.h"

namespace sim {

namespace {

std::FILE* g_file = nullptr;
uint64_t g_sum = 0xcbf29ce484222325;

void Add(const char* bytes, size_t size) {
    uint64_t sum = g_sum;
    while (size >= 8) {
        uint64_t word = 0;
        std::memcpy(&word, bytes, 8);
        sum = (sum ^ word) * 0x100000001b3;
        sum ^= sum >> 29U;
        bytes += 8;
        size -= 8;
    }
    for (; size != 0; --size) {
        sum = (sum ^ static_cast<unsigned char>(*bytes++)) * 0x100000001b3;
    }
    g_sum = sum;
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

void Note(std::string_view text, std::string_view bytes) {
    const Thread* const me = Self();
    const uint64_t head[2] = {Now(), me == nullptr ? 0 : me->number};
    Add(reinterpret_cast<const char*>(head), sizeof head);
    Add(text.data(), text.size());
    Add(bytes.data(), bytes.size());
    if (g_file != nullptr) {
        std::fprintf(g_file, "%llu.%06llu %s %.*s%s\n", static_cast<unsigned long long>(head[0] / 1000000),
                     static_cast<unsigned long long>(head[0] % 1000000), me == nullptr ? "-" : me->Label().c_str(),
                     static_cast<int>(text.size()), text.data(),
                     bytes.empty() ? "" : (" [" + Shown(bytes) + "]").c_str());
    }
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
    Note("VIOLATION: " + text);
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
