// The members of manifest.json stand here in their order.
#include "package.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include <unistd.h>

#include "archive_writer.h"
#include "area.h"
#include "common/json.h"
#include "common/text.h"
#include "common/times.h"

namespace ominspect::collect {
namespace {

using json::Value;

constexpr std::uint64_t kFormat = 1;  // raised when a member changes its meaning

Value FailureList(const std::vector<Failure>& failures) {
    Value list = Value::Array();
    for (const Failure& failure : failures) {
        Value one = Value::Object();
        one.Text("path", text::Escaped(failure.path)).Text("reason", text::Escaped(failure.reason));
        list.Add(std::move(one));
    }
    return list;
}

Value TextList(const std::vector<std::string>& texts) {
    Value list = Value::Array();
    for (const std::string& one : texts) {
        list.AddText(text::Escaped(one));
    }
    return list;
}

Value EntryObject(const EntryReport& report, const std::string& area) {
    const Entry& entry = report.entry;
    Value object = Value::Object();
    object.Text("source", text::Escaped(entry.source))
        .Text("destination", text::Escaped(PlaceIn(area, entry.destination).value_or(entry.destination)))
        .Text("kind", KindWord(entry.copy))
        .Number("timeLimitSeconds", static_cast<std::uint64_t>(report.limit.count()))
        .Text("outcome", OutcomeWord(report.outcome))
        .Flag("cutShort", report.outcome == Outcome::kCutShort)
        .Text("remark", text::Escaped(report.remark))
        .Number("files", report.files)
        .Number("bytes", report.bytes)
        .Number("durationMs", static_cast<std::uint64_t>(report.duration.count()))
        .Number("failureCount", report.failures.count)
        .Put("failures", FailureList(report.failures.list))
        .Number("messageCount", report.messages.count)
        .Put("messages", TextList(report.messages.list));
    return object;
}

Value VendorObject(const VendorReport& report) {
    Value object = Value::Object();
    object.Text("result", std::to_string(report.result))
        .Text("remark", text::Escaped(report.remark))
        .Number("messageCount", report.messages.count)
        .Put("messages", TextList(report.messages.list));
    return object;
}

Value FileObject(const PackedFile& file) {
    const auto modified = std::chrono::system_clock::from_time_t(file.modified.tv_sec);
    Value object = Value::Object();
    object.Text("path", text::Escaped(file.path))
        .Number("bytes", file.bytes)
        .Text("sha256", file.sha256)
        .Text("modified", UtcSecond(modified));
    if (file.masked) {
        object.Number("masked", *file.masked);
    }
    if (file.binary) {
        object.Flag("binary", true);
    }
    if (file.older) {
        object.Flag("fromBefore", true);
    }
    if (!file.note.empty()) {
        object.Text("note", file.note);
    }
    return object;
}

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

bool IsComplete(const Collection& collection, const PackedTree& packed) {
    return !collection.interrupted && collection.vendor.IsGood() && !collection.entries.empty() &&
           packed.leftOut.empty() &&
           std::all_of(collection.entries.begin(), collection.entries.end(),
                       [](const EntryReport& report) { return report.outcome == Outcome::kComplete; }) &&
           std::all_of(packed.files.begin(), packed.files.end(),
                       [](const PackedFile& file) { return file.note.empty(); });
}

std::string ManifestText(const Collection& collection, const PackedTree& packed) {
    Value entries = Value::Array();
    for (const EntryReport& report : collection.entries) {
        entries.Add(EntryObject(report, collection.area));
    }
    Value files = Value::Array();
    for (const PackedFile& file : packed.files) {
        files.Add(FileObject(file));
    }
    Value links = Value::Array();
    for (const PackedLink& link : packed.links) {
        Value one = Value::Object();
        one.Text("path", text::Escaped(link.path)).Text("target", text::Escaped(link.target));
        links.Add(std::move(one));
    }

    Value manifest = Value::Object();
    manifest.Number("format", kFormat)
        .Text("tool", "ominspectctl")
        .Text("version", collection.version)
        .Text("host", text::Escaped(collection.host))
        .Text("file", text::Escaped(collection.file))
        .Text("started", UtcSecond(collection.started))
        .Text("collected", UtcSecond(collection.collected))
        .Flag("complete", IsComplete(collection, packed))
        .Flag("interrupted", collection.interrupted)
        .Flag("redacted", collection.redacted)
        .Text("configuration", text::Escaped(collection.configuration))
        .Put("messages", TextList(collection.messages))
        .Text("area", text::Escaped(collection.area))
        .Put("vendor", VendorObject(collection.vendor))
        .Put("entries", std::move(entries))
        .Put("files", std::move(files))
        .Put("links", std::move(links))
        .Put("leftOut", FailureList(packed.leftOut));
    if (collection.dryRun) {
        manifest.Flag("dryRun", true);
    }
    return manifest.PrintIndented();
}

Result<Package> WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                             const Redaction* redaction, const std::function<bool(const PackedTree&)>& goOn) {
    Package package;
    const std::string folder = FolderName(collection.file);
    ArchiveWriter archive([&](std::string_view data) { return file.Write(data); });
    PackOptions options;
    options.folder = folder + "/files";
    options.since = since;
    options.exclude = [&](const struct stat& status) { return file.IsSame(status); };
    options.goOn = goOn;
    options.redaction = redaction;

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
