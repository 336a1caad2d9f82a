// The assembler takes the files in as they are.
#include "http/builtin.h"

#include <array>
#include <string_view>

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the name is part of the assembler's text
#define OMINSPECT_TAKEN_IN(file) ".incbin \"" OMINSPECT_BUILTIN_FOLDER "/" file "\"\n"
#define OMINSPECT_BUILTIN(name, content)                                                                           \
    __asm__(".section .rodata\n.global builtin_" #name "\n.hidden builtin_" #name "\nbuiltin_" #name ":\n" content \
            ".global builtin_" #name                                                                               \
            "_end\n.hidden "                                                                                       \
            "builtin_" #name "_end\nbuiltin_" #name "_end:\n.byte 0\n.previous\n");                                \
    extern "C" const char builtin_##name[];                                                                        \
    extern "C" const char builtin_##name##_end[]
// NOLINTEND(cppcoreguidelines-macro-usage)

OMINSPECT_BUILTIN(openapi, OMINSPECT_TAKEN_IN("http/openapi.json"));
OMINSPECT_BUILTIN(page, OMINSPECT_TAKEN_IN("page/index.html"));
OMINSPECT_BUILTIN(style, OMINSPECT_TAKEN_IN("page/style.css"));
// Two files, one request.
OMINSPECT_BUILTIN(main, OMINSPECT_TAKEN_IN("page/view.js") OMINSPECT_TAKEN_IN("page/main.js"));

namespace ominspect::gateway {
namespace {

struct File {
    std::string_view path;
    const char* type;
    const char* begin;
    const char* end;
};

Response ResponseOf(const File& file) {
    return TextResponse(200, file.type, std::string(file.begin, file.end));
}

}  // namespace

std::optional<Response> BuiltinFile(const std::string& path) {
    static const std::array<File, 3> kFiles{{
        {"/", "text/html; charset=utf-8", builtin_page, builtin_page_end},
        {"/style.css", "text/css; charset=utf-8", builtin_style, builtin_style_end},
        {"/main.js", "text/javascript; charset=utf-8", builtin_main, builtin_main_end},
    }};
    for (const File& file : kFiles) {
        if (file.path == path) {
            return ResponseOf(file);
        }
    }
    return std::nullopt;
}

Response OpenApiDocument() {
    return ResponseOf({"", "application/json", builtin_openapi, builtin_openapi_end});
}

}  // namespace ominspect::gateway
