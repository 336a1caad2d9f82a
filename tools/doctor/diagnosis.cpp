// The loader runs once for the whole file, once per element, and once per attribute that may be without effect.
#include "doctor/diagnosis.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string_view>
#include <utility>

#include <sys/stat.h>

#include <tinyxml2.h>

#include "collect/intercept.h"

namespace ominspect::doctor {
namespace {

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

// One of the two lists of the file: how its elements are named and who loads it.
struct ListKind {
    const char* list;
    const char* element;
    void (InspectConfigMgr::*load)(XMLElement* root);
};

constexpr ListKind kItems{"DiagnoseList", "DiagnoseItem", &InspectConfigMgr::InitInspectItemList};
constexpr ListKind kEntries{"LogCollect", "Log", &InspectConfigMgr::InitLogCollectList};

// What the loader made of something.
struct Loaded {
    std::vector<tagKivoOmInspectionItem> items;
    std::vector<InspectOneDiagFile> entries;
    std::vector<std::string> messages;
};

Loaded Load(const std::function<void(InspectConfigMgr&)>& load) {
    Loaded loaded;
    InspectConfigMgr config;
    {
        const LogCapture log([&](unsigned /*level*/, const std::string& text) { loaded.messages.push_back(text); });
        load(config);
    }
    loaded.items = config.GetInspectItemList();
    loaded.entries = config.GetLogCollectList();
    return loaded;
}

// Gives one element to the loader, in a document of its own and under the name that the loader looks for.
Loaded LoadAlone(const ListKind& kind, const XMLElement& element, const char* without = nullptr) {
    XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    XMLElement* root = document.NewElement("alone");
    document.InsertEndChild(root);
    XMLElement* list = root->InsertNewChildElement(kind.list);
    XMLElement* copy = list->InsertEndChild(element.DeepClone(&document))->ToElement();
    copy->SetName(kind.element);
    if (without != nullptr) {
        copy->DeleteAttribute(without);
    }
    return Load([&](InspectConfigMgr& config) { (config.*kind.load)(root); });
}

// The loader's lines about the lists themselves: those that remain when the lists are empty.
std::vector<std::string> MessagesAboutLists(const XMLElement& root) {
    XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    XMLElement* copy = document.InsertEndChild(root.ShallowClone(&document))->ToElement();
    for (const auto* child = root.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
        copy->InsertEndChild(child->ShallowClone(&document));
    }
    return Load([&](InspectConfigMgr& config) {
               config.InitInspectItemList(copy);
               config.InitLogCollectList(copy);
           })
        .messages;
}

bool IsSame(const Loaded& one, const Loaded& other) {
    const auto sameItem = [](const auto& a, const auto& b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    const auto sameEntry = [](const InspectOneDiagFile& a, const InspectOneDiagFile& b) {
        return std::strcmp(a.srcPath, b.srcPath) == 0 && std::strcmp(a.dstPath, b.dstPath) == 0 &&
               a.timeout == b.timeout && a.copy == b.copy;
    };
    return one.messages == other.messages &&
           std::equal(one.items.begin(), one.items.end(), other.items.begin(), other.items.end(), sameItem) &&
           std::equal(one.entries.begin(), one.entries.end(), other.entries.begin(), other.entries.end(), sameEntry);
}

std::size_t ElementsInside(const XMLElement& element) {
    std::size_t count = 0;
    for (const auto* child = element.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
        count += 1 + ElementsInside(*child);
    }
    return count;
}

std::string Quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

class Walk {
public:
    explicit Walk(std::vector<ElementReport>& elements) : elements_(elements) {}

    void Document(const XMLElement& root) {
        const XMLElement* items = root.FirstChildElement(kItems.list);
        const XMLElement* entries = root.FirstChildElement(kEntries.list);
        for (const auto* child = root.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
            const std::string_view name = child->Name();
            if (child == items) {
                List(kItems, *child);
            } else if (child == entries) {
                List(kEntries, *child);
            } else if (name == kItems.list || name == kEntries.list) {
                Unused(*child, "only the first " + std::string(name) + " counts");
            } else {
                Unused(*child, "it is neither DiagnoseList nor LogCollect");
            }
        }
    }

private:
    void List(const ListKind& kind, const XMLElement& list) {
        const std::size_t own = elements_.size();
        elements_.push_back(Begin(list));
        std::size_t records = 0;
        const XMLElement* first = list.FirstChildElement(kind.element);
        bool counts = false;
        for (const auto* child = list.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
            counts = counts || child == first;
            if (counts) {
                Record(kind, *child, records++);
            } else {
                Unused(*child, first == nullptr ? std::string("there is no ") + kind.element
                                                : std::string("it stands before the first ") + kind.element);
            }
        }
        elements_[own].records = records;
        if (first == nullptr) {
            elements_[own].notes.push_back(std::string("there is no ") + kind.element + " in it");
        }
    }

    void Record(const ListKind& kind, const XMLElement& element, std::size_t index) {
        ElementReport report = Begin(element);
        const Loaded loaded = LoadAlone(kind, element);
        report.fallbacks = loaded.messages;
        if (!loaded.items.empty()) {
            report.item = loaded.items.front();
        }
        if (!loaded.entries.empty()) {
            report.entry = loaded.entries.front();
        }
        if (report.name != kind.element) {
            report.notes.push_back(std::string("it counts as a ") + kind.element + ", whatever its name");
        }
        for (const auto* attribute = element.FirstAttribute(); attribute != nullptr; attribute = attribute->Next()) {
            // The loader does not read an attribute that makes no difference.
            if (IsSame(loaded, LoadAlone(kind, element, attribute->Name()))) {
                report.notes.push_back("the attribute " + Quoted(attribute->Name()) + " is not read");
            }
        }
        if (report.item) {
            NoteItem(report, index);
        }
        elements_.push_back(std::move(report));
        for (const auto* child = element.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
            Unused(*child, std::string("it is inside a ") + kind.element);
        }
    }

    void NoteItem(ElementReport& report, std::size_t index) {
        const std::string name = static_cast<const char*>(report.item->name);
        if (const auto [first, fresh] = lines_.try_emplace(name, report.line); !fresh && !name.empty()) {
            report.notes.push_back("line " + std::to_string(first->second) + " has this name, too");
        }
        if (index >= OM_INSPECT_LIST_SLOTS) {
            report.notes.emplace_back("the list of items that the server answers ends with the 256th");
        }
    }

    void Unused(const XMLElement& element, const std::string& why) {
        ElementReport report = Begin(element);
        const std::size_t inside = ElementsInside(element);
        report.notes.push_back("not looked at: " + why);
        if (inside > 0) {
            report.notes.push_back("not looked at: the elements inside it, " + std::to_string(inside));
        }
        elements_.push_back(std::move(report));
    }

    static ElementReport Begin(const XMLElement& element) {
        ElementReport report;
        report.line = element.GetLineNum();
        report.name = element.Name();
        return report;
    }

    std::vector<ElementReport>& elements_;
    std::map<std::string, int> lines_;  // of the items' names
};

// Whether reading it may wait, or never end. The loader reads nothing from a folder, as from a file that is not there.
bool IsDeviceOrPipe(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

bool IsSynchronous(const tagKivoOmInspectionItem& item) {
    return (static_cast<unsigned long>(item.featureBits) & 1U) != 0;
}

bool Diagnosis::FallsBack() const {
    return !messages.empty() || std::any_of(elements.begin(), elements.end(),
                                            [](const ElementReport& element) { return !element.fallbacks.empty(); });
}

Diagnosis Diagnose(const std::string& path) {
    Diagnosis diagnosis;
    if (IsDeviceOrPipe(path)) {
        diagnosis.unreadable = WrongUse("not a regular file");
        return diagnosis;
    }
    Loaded whole = Load([&](InspectConfigMgr& config) { config.InitInspectConfigFrom(path); });
    diagnosis.items = std::move(whole.items);
    diagnosis.entries = whole.entries.size();

    XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);  // as the loader reads it
    if (document.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
        diagnosis.unreadable = WrongUse(document.ErrorStr());
    }
    if (diagnosis.unreadable || document.RootElement() == nullptr) {
        diagnosis.messages = std::move(whole.messages);
        return diagnosis;
    }
    diagnosis.messages = MessagesAboutLists(*document.RootElement());
    Walk(diagnosis.elements).Document(*document.RootElement());
    return diagnosis;
}

}  // namespace ominspect::doctor
