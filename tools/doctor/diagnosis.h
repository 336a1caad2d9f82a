// What the server's loader makes of a configuration file, element by element. Each element is given to the loader
// alone, so that its lines and the resulting record are known to belong to that element.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/error.h"
#include "ominspect/config.h"
#include "ominspect/records.h"

namespace ominspect::doctor {

// One element of the file; foreign texts are as in the file.
struct ElementReport {
    int line = 0;
    std::string name;
    std::optional<tagKivoOmInspectionItem> item;  // the record, when it is one of the items
    std::optional<InspectOneDiagFile> entry;      // the record, when it is one of the collection's entries
    std::optional<std::size_t> records;           // how many records it holds, when it is one of the two lists
    std::vector<std::string> fallbacks;           // the loader's lines about it
    std::vector<std::string> notes;               // what else its author will not have meant
};

struct Diagnosis {
    std::optional<Error> unreadable;    // why the file could not be parsed
    std::vector<std::string> messages;  // the loader's lines about the file as a whole
    std::vector<ElementReport> elements;
    std::vector<tagKivoOmInspectionItem> items;  // that the server would support
    std::size_t entries = 0;                     // that a collection would have

    // Whether the loader falls back anywhere. Notes do not count.
    bool FallsBack() const;
};

// Whether the item's owner answers at once.
bool IsSynchronous(const tagKivoOmInspectionItem& item);

// Reads the file. The loader gives out the built-in tables once, so only the first unreadable file of a process shows
// them.
Diagnosis Diagnose(const std::string& path);

}  // namespace ominspect::doctor
