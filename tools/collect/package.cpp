// The package: the area's files and the manifest in one archive.
#include "package.h"

#include <cstring>
#include <ctime>
#include <string_view>

#include <unistd.h>

#include "archive_writer.h"

namespace ominspect::collect {
namespace {

constexpr std::string_view kEnding = ".tar.zst";

std::string FolderName(const std::string& file) {
    const bool hasEnding = file.size() > kEnding.size() && file.ends_with(kEnding);
    return hasEnding ? file.substr(0, file.size() - kEnding.size()) : file;
}

struct stat OwnStatus() {
    struct stat status {};
    status.st_mode = 0755;
    status.st_uid = geteuid();
    status.st_gid = getegid();
    (void)clock_gettime(CLOCK_REALTIME, &status.st_mtim);
    return status;
}

bool AddText(ArchiveWriter& archive, const std::string& name, const std::string& text) {
    struct stat status = OwnStatus();
    status.st_mode = 0644;
    return archive.BeginFile(name, status, text.size()) && archive.Data(text.data(), text.size());
}

}  // namespace

Package WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                     const std::function<bool(const PackedTree&)>& goOn) {
    Package package;
    const std::string folder = FolderName(collection.file);
    ArchiveWriter archive([&](const void* data, std::size_t size) { return file.Write(data, size); });
    PackOptions options;
    options.folder = folder + "/files";
    options.since = since;
    options.exclude = [&](const struct stat& status) { return file.IsSame(status); };
    options.goOn = goOn;

    bool written = archive.AddFolder(folder, OwnStatus()) && archive.AddFolder(options.folder, OwnStatus());
    if (written) {
        switch (PackTree(collection.area, options, archive, package.packed)) {
            case PackResult::kPacked:
                package.manifest = ManifestText(collection, package.packed) + '\n';
                written = AddText(archive, folder + "/manifest.json", package.manifest);
                break;
            case PackResult::kGivenUp:
                package.error = "given up";
                return package;
            case PackResult::kArchiveFailed:
                written = false;
                break;
        }
    }
    if (!written || !archive.Close()) {
        package.error = archive.Error();
    } else if (const int error = file.Commit(); error != 0) {
        package.error = std::strerror(error);
    }
    return package;
}

}  // namespace ominspect::collect
