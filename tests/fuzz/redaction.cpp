// A file whose secrets are masked. Sizes stay; what is not masked stays; and it does not matter in which pieces it
// comes.
#include "collect/redaction.h"

#include "input.h"

namespace {

using namespace ominspect;

std::string Masked(const collect::Redaction& redaction, std::string_view text, std::size_t piece) {
    collect::Redactor redactor(redaction);
    std::string out;
    const auto sink = [&out](std::string_view data) {
        out.append(data);
        return std::optional<Error>();
    };
    for (std::size_t at = 0; at < text.size(); at += piece) {
        fuzz::Check(!redactor.Add(text.substr(at, piece), sink));
    }
    fuzz::Check(!redactor.End(sink));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto redaction = std::move(*collect::Redaction::Make({}));
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string whole = Masked(*redaction, text, size + 1);
    fuzz::Check(whole.size() == size);
    for (std::size_t i = 0; i < size; ++i) {
        fuzz::Check(whole[i] == text[i] || whole[i] == '*');
    }
    // The first piece decides whether it is a text; a file's is larger than what is looked at.
    if (text.find('\0') == std::string_view::npos && size > 8) {
        fuzz::Check(Masked(*redaction, text, 8) == whole);
    }
    return 0;
}
