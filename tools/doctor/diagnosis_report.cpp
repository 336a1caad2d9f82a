// Both forms say the same, with every text from the file escaped.
#include "doctor/diagnosis_report.h"

#include <string_view>
#include <utility>

#include "common/json.h"
#include "common/text.h"

namespace ominspect::doctor {
namespace {

using json::Value;

std::string Quoted(std::string_view text) {
    return '"' + text::Escaped(text) + '"';
}

const char* CopyWord(const InspectOneDiagFile& entry) {
    if (entry.copy == InspectCopyWylogsFile) {
        return "system log";
    }
    return entry.copy == InspectCopyDirFile ? "folder" : "single file";
}

const char* UseWord(const ElementReport& element) {
    if (element.item) {
        return "item";
    }
    if (element.entry) {
        return "entry";
    }
    return element.records ? "list" : "none";
}

// A blank and the quoted text that identifies the record; empty for an element without a record.
std::string Label(const ElementReport& element) {
    if (element.item) {
        return ' ' + Quoted(static_cast<const char*>(element.item->name));
    }
    if (element.entry) {
        return ' ' + Quoted(static_cast<const char*>(element.entry->srcPath));
    }
    return {};
}

// The resulting values; empty for an element that is not used.
std::string Values(const ElementReport& element) {
    if (element.item) {
        return "level " + Quoted(static_cast<const char*>(element.item->level)) +
               (IsSynchronous(*element.item) ? ", synchronous" : ", asynchronous");
    }
    if (element.entry) {
        return "to " + Quoted(static_cast<const char*>(element.entry->dstPath)) + ", " +
               std::to_string(element.entry->timeout) + " s, " + CopyWord(*element.entry);
    }
    if (element.records) {
        return "records: " + std::to_string(*element.records);
    }
    return {};
}

Value TextList(const std::vector<std::string>& texts) {
    Value list = Value::Array();
    for (const std::string& one : texts) {
        list.AddText(text::Escaped(one));
    }
    return list;
}

Value ValueObject(const ElementReport& element) {
    Value values = Value::Object();
    if (element.item) {
        values.Text("name", text::Escaped(static_cast<const char*>(element.item->name)))
            .Text("level", text::Escaped(static_cast<const char*>(element.item->level)))
            .Flag("synchronous", IsSynchronous(*element.item));
    } else if (element.entry) {
        values.Text("source", text::Escaped(static_cast<const char*>(element.entry->srcPath)))
            .Text("destination", text::Escaped(static_cast<const char*>(element.entry->dstPath)))
            .Number("timeLimitSeconds", element.entry->timeout)
            .Text("kind", CopyWord(*element.entry));
    } else if (element.records) {
        values.Number("records", *element.records);
    }
    return values;
}

}  // namespace

std::string ReportText(const std::string& path, const Diagnosis& diagnosis) {
    std::string out;
    for (const ElementReport& element : diagnosis.elements) {
        const std::string head =
            "line " + std::to_string(element.line) + ": " + text::Escaped(element.name) + Label(element) + ": ";
        if (const std::string values = Values(element); !values.empty()) {
            out += head + values + '\n';
        }
        for (const std::string& fallback : element.fallbacks) {
            out += head + "falls back: " + text::Escaped(fallback) + '\n';
        }
        for (const std::string& note : element.notes) {
            out += head + text::Escaped(note) + '\n';
        }
    }
    const std::string head = text::Escaped(path) + ": ";
    if (diagnosis.unreadable) {
        out += head + text::Escaped(diagnosis.unreadable->text) + '\n';
    }
    for (const std::string& message : diagnosis.messages) {
        out += head + "falls back: " + text::Escaped(message) + '\n';
    }
    out += head + "items: " + std::to_string(diagnosis.items.size()) +
           ", collection entries: " + std::to_string(diagnosis.entries) + '\n';
    return out;
}

Value ReportJson(const std::string& path, const Diagnosis& diagnosis) {
    Value elements = Value::Array();
    for (const ElementReport& element : diagnosis.elements) {
        Value one = Value::Object();
        one.Number("line", static_cast<std::uint64_t>(element.line))
            .Text("element", text::Escaped(element.name))
            .Text("use", UseWord(element))
            .Put("values", ValueObject(element))
            .Put("fallbacks", TextList(element.fallbacks))
            .Put("notes", TextList(element.notes));
        elements.Add(std::move(one));
    }
    Value document = Value::Object();
    document.Text("file", text::Escaped(path))
        .Flag("readable", !diagnosis.unreadable)
        .Text("error", diagnosis.unreadable ? text::Escaped(diagnosis.unreadable->text) : "")
        .Flag("fallsBack", diagnosis.FallsBack())
        .Put("messages", TextList(diagnosis.messages))
        .Number("items", diagnosis.items.size())
        .Number("entries", diagnosis.entries)
        .Put("elements", std::move(elements));
    return document;
}

}  // namespace ominspect::doctor
