// The texts are for people: their form may change.
#include "describe.h"

#include <cerrno>
#include <sstream>

#include <unistd.h>

#include "common/text.h"

namespace ominspect::owner {
namespace {

// An argument as a person would write it: in quotes where its limits would not be seen.
std::string Shown(const std::string& argument) {
    const std::string escaped = text::Escaped(argument);
    const bool clear = !escaped.empty() && escaped.find_first_of(" \"'") == std::string::npos;
    return clear ? escaped : "\"" + escaped + "\"";
}

}  // namespace

std::string Describe(const OwnerConfig& config) {
    std::ostringstream out;
    out << "process " << text::Escaped(config.process) << ", at most " << config.maxParallel
        << " asynchronous commands at a time\n";
    for (const ItemConfig& item : config.items) {
        out << "item " << text::Escaped(item.name) << ": " << (item.isSync ? "synchronous" : "asynchronous") << ", "
            << item.limit.count() << " s, runs";
        for (const std::string& argument : item.argv) {
            out << ' ' << Shown(argument);
        }
        if (access(item.argv[0].c_str(), X_OK) != 0) {
            out << "  (cannot be run now: " << SystemText(errno) << ')';
        }
        out << '\n';
    }
    return out.str();
}

}  // namespace ominspect::owner
