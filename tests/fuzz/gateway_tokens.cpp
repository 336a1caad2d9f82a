// The gateway's file of tokens. A mistake has a text, and no secret is in it; a token that is taken is one.
#include "http/access.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto tokens = ominspect::gateway::ParseTokens({reinterpret_cast<const char*>(data), size});
    if (!tokens) {
        fuzz::Check(tokens.Failure().text.starts_with("line "));
        return 0;
    }
    for (const auto& token : *tokens) {
        fuzz::Check(token.role != ominspect::gateway::Role::kNone && !token.name.empty());
        fuzz::Check(token.secret.size() >= 20 && token.secret.size() <= 128);
    }
    return 0;
}
