// The package: the area's files and the manifest in one archive.
#include "package.h"

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

std::optional<Error> AddText(ArchiveWriter& archive, const std::string& name, const std::string& text) {
    struct stat status = OwnStatus();
    status.st_mode = 0644;
    auto error = archive.BeginFile(name, status, text.size());
    return error ? error : archive.Data(text);
}

}  // namespace

Result<Package> WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                             const std::function<bool(const PackedTree&)>& goOn) {
    Package package;
    const std::string folder = FolderName(collection.file);
    ArchiveWriter archive([&](std::string_view data) { return file.Write(data); });
    PackOptions options;
    options.folder = folder + "/files";
    options.since = since;
    options.exclude = [&](const struct stat& status) { return file.IsSame(status); };
    options.goOn = goOn;

    auto error = archive.AddFolder(folder, OwnStatus());
    if (!error) {
        error = archive.AddFolder(options.folder, OwnStatus());
    }
    if (!error) {
        error = PackTree(collection.area, options, archive, package.packed);
    }
    if (!error) {
        package.manifest = ManifestText(collection, package.packed) + '\n';
        error = AddText(archive, folder + "/manifest.json", package.manifest);
    }
    if (!error) {
        error = archive.Close();
    }
    if (!error) {
        error = file.Commit();
    }
    if (error) {
        return *error;
    }
    return package;
}

}  // namespace ominspect::collect
