// Functions of paths and names: those of the log collection, and what stands for process and task names on the bus.
#include <cstring>
#include <string>

#include "collect/file_ops.h"
#include "input.h"
#include "msg/names.h"
#include "ominspect/collect.h"

namespace {

void Join(const std::string& directory, const std::string& name) {
    PathBuffer path;
    path.fill('x');
    if (JoinPath(path, directory.c_str(), name.c_str())) {
        fuzz::Check(std::string(path.data()) == std::string(directory.c_str()) + '/' + name.c_str());
    } else {
        fuzz::Check(std::strlen(directory.c_str()) + 1 + std::strlen(name.c_str()) >= path.size());
    }
}

void Show(const std::string& path) {
    const std::string shown = SafeTool::TransferSafePath(path);
    fuzz::Check(shown.starts_with("****") && shown.size() <= 12 && (path.size() > 8) == (shown.size() == 12));
    const bool isDangerous = path.find_first_of("|;&$><`\n!") != std::string::npos;
    fuzz::Check(SafeTool::IsContainDangerChar(path) == isDangerous);
}

// Of all the texts that could stand for a name only one does.
void Name(const std::string& text) {
    const std::string process = kivo::msg::ProcNameOf(text.c_str());
    fuzz::Check(process.empty() || kivo::msg::BusNameOf(process) == text.c_str());
    const std::string task = kivo::msg::TaskNameOf(text.c_str());
    fuzz::Check(task.empty() || kivo::msg::PathOf(task) == text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string directory(input.Take(input.Number(2) % 512));
    const std::string name(input.Rest());
    Join(directory, name);
    Show(name);
    Name(name);
    Name(kivo::msg::kProcPrefix + name);
    Name("/com/kivo/task/" + name);
    return 0;
}
