// Read from proc(5).
#include "server_figures.h"

#include <filesystem>
#include <iterator>
#include <string>

#include "support/process_state.h"
#include "support/temp_folder.h"

namespace soak {

Figures FiguresOf(pid_t server) {
    constexpr size_t kOwn = 4;  // the main thread and three tasks
    const std::filesystem::path folder = "/proc/" + std::to_string(server);
    Figures figures;
    size_t own = 0;
    for (const auto& task : std::filesystem::directory_iterator(folder / "task")) {
        const std::string name = support::Contents(task.path() / "comm");
        ++figures.threads;
        own += name.starts_with("kivo_") ? 0 : 1;  // the platform's own
    }
    figures.jobs = own > kOwn ? own - kOwn : 0;
    const std::filesystem::directory_iterator descriptors(folder / "fd");
    figures.descriptors = static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
    figures.memoryKiB = std::stoul(support::StatusLine(server, "RssAnon"));
    return figures;
}

}  // namespace soak
