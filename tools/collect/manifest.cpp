// What a package says about itself: the members of manifest.json, in their order.
#include "manifest.h"

#include <algorithm>

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
        .Number("timeLimitSeconds", entry.limit)
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

Value FileObject(const PackedFile& file) {
    const auto modified = std::chrono::system_clock::from_time_t(file.modified.tv_sec);
    Value object = Value::Object();
    object.Text("path", text::Escaped(file.path))
        .Number("bytes", file.bytes)
        .Text("sha256", file.sha256)
        .Text("modified", UtcSecond(modified));
    if (file.older) {
        object.Flag("fromBefore", true);
    }
    if (!file.note.empty()) {
        object.Text("note", file.note);
    }
    return object;
}

}  // namespace

bool IsComplete(const Collection& collection, const PackedTree& packed) {
    return !collection.interrupted && !collection.entries.empty() && packed.leftOut.empty() &&
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
        .Text("configuration", text::Escaped(collection.configuration))
        .Put("messages", TextList(collection.messages))
        .Text("area", text::Escaped(collection.area))
        .Put("entries", std::move(entries))
        .Put("files", std::move(files))
        .Put("links", std::move(links))
        .Put("leftOut", FailureList(packed.leftOut));
    return manifest.PrintIndented();
}

}  // namespace ominspect::collect
