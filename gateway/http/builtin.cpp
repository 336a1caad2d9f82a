// The assembler takes the files in as they are.
#include "http/builtin.h"

#include <array>
#include <string_view>

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the name is part of the assembler's text
#define OMINSPECT_BUILTIN(name, file)                                                                \
    __asm__(".section .rodata\n.global builtin_" #name "\n.hidden builtin_" #name "\nbuiltin_" #name \
            ":\n.incbin \"" OMINSPECT_BUILTIN_FOLDER "/" file "\"\n.global builtin_" #name           \
            "_end\n.hidden "                                                                         \
            "builtin_" #name "_end\nbuiltin_" #name "_end:\n.byte 0\n.previous\n");                  \
    extern "C" const char builtin_##name[];                                                          \
    extern "C" const char builtin_##name##_end[]
// NOLINTEND(cppcoreguidelines-macro-usage)

OMINSPECT_BUILTIN(openapi, "http/openapi.json");
OMINSPECT_BUILTIN(page, "page/index.html");
OMINSPECT_BUILTIN(style, "page/style.css");
OMINSPECT_BUILTIN(main, "page/main.js");
OMINSPECT_BUILTIN(view, "page/view.js");
OMINSPECT_BUILTIN(icon, "page/icon.svg");

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
    static const std::array<File, 5> kFiles{{
        {"/", "text/html; charset=utf-8", builtin_page, builtin_page_end},
        {"/style.css", "text/css; charset=utf-8", builtin_style, builtin_style_end},
        {"/main.js", "text/javascript; charset=utf-8", builtin_main, builtin_main_end},
        {"/view.js", "text/javascript; charset=utf-8", builtin_view, builtin_view_end},
        {"/icon.svg", "image/svg+xml", builtin_icon, builtin_icon_end},
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
