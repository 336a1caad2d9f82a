// The configuration manager: loads the XML file into the two lists.
#include <sys/stat.h>
#include <tinyxml2.h>

#include <new>
#include <string_view>

#include "base/log.h"
#include "config/config_transfer.h"
#include "config/default_config.h"
#include "kivo/os_file.h"
#include "ominspect/config.h"

namespace {

constexpr LogUnit kLogUnit{"InspectConfigMgr", 20};

// The source whose copy function is not chosen by "isFolder".
constexpr const char* kSystemLogSource = "/data/log/wylogs";

tagKivoOmInspectionItem ReadItem(tinyxml2::XMLElement* element) {
    tagKivoOmInspectionItem item{};
    ConfigTransfer::TransStringAttr(element, "name", static_cast<char*>(item.name), sizeof(item.name));
    ConfigTransfer::TransStringAttr(element, "level", static_cast<char*>(item.level), sizeof(item.level));
    long bits = 0;
    ConfigTransfer::TransBitAttr(element, {"isSync"}, bits);
    item.featureBits = bits;
    return item;
}

InspectOneDiagFile ReadEntry(tinyxml2::XMLElement* element) {
    InspectOneDiagFile entry{};
    ConfigTransfer::TransStringAttr(element, "srcPath", static_cast<char*>(entry.srcPath), sizeof(entry.srcPath));
    ConfigTransfer::TransStringAttr(element, "dstPath", static_cast<char*>(entry.dstPath), sizeof(entry.dstPath));
    ConfigTransfer::TransUint32Attr(element, "timeout", entry.timeout);
    if (std::string_view(static_cast<const char*>(entry.srcPath)) == kSystemLogSource) {
        entry.copy = InspectCopyWylogsFile;
    } else {
        ConfigTransfer::TransFolderAttr(element, entry.copy);
    }
    return entry;
}

// In place of a file, a pipe would block the start until somebody writes to it, and a device perhaps for good.
tinyxml2::XMLError LoadFile(tinyxml2::XMLDocument& document, const std::string& path) {
    OsFileStat status{};
    if (OsGetStat(path.c_str(), &status) == 0 && !S_ISREG(status.mode)) {
        return tinyxml2::XML_ERROR_FILE_READ_ERROR;
    }
    return document.LoadFile(path.c_str());
}

}  // namespace

InspectConfigMgr* InspectConfigMgr::GetInstance() {
    if (m_configMgr == nullptr) {
        m_configMgr = new (std::nothrow) InspectConfigMgr();
        if (m_configMgr == nullptr) {
            INSPECT_ERROR("m_configMgr instance creat err !");
        }
    }
    return m_configMgr;
}

std::vector<InspectOneDiagFile> InspectConfigMgr::GetLogCollectList() {
    return logCollectList;
}

std::vector<tagKivoOmInspectionItem> InspectConfigMgr::GetInspectItemList() {
    return inspectItemList;
}

void InspectConfigMgr::InitInspectConfig() {
    InitInspectConfigFrom(g_inspectConfigPath);
}

void InspectConfigMgr::InitInspectConfigFrom(const std::string& path) {
    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    if (const tinyxml2::XMLError error = LoadFile(document, path); error != 0) {
        INSPECT_ERROR("xml read err, error code : %d. use default config.", static_cast<int>(error));
        InitInspectItemList(nullptr);  // the items only: nothing is collected after an unreadable file
        return;
    }
    tinyxml2::XMLElement* root = document.RootElement();
    if (root == nullptr) {
        INSPECT_ERROR("xmlDocGetRootElement fail");
    }
    InitInspectItemList(root);
    InitLogCollectList(root);
}

void InspectConfigMgr::InitInspectItemList(tinyxml2::XMLElement* root) {
    if (root == nullptr) {
        INSPECT_WARNING("use default config InspectItemList.");
        inspectItemList.swap(InspectDefaultConfig::g_supportInspectList);
        return;
    }
    tinyxml2::XMLElement* list = root->FirstChildElement("DiagnoseList");
    if (list == nullptr) {
        INSPECT_ERROR("there is no [DiagnoseList] in config.");
        return;
    }
    // From the first item on, every element is one, whatever its name.
    for (auto* item = list->FirstChildElement("DiagnoseItem"); item != nullptr; item = item->NextSiblingElement()) {
        inspectItemList.push_back(ReadItem(item));
    }
    inspectItemList.shrink_to_fit();
}

void InspectConfigMgr::InitLogCollectList(tinyxml2::XMLElement* root) {
    if (root == nullptr) {
        INSPECT_WARNING("use default config logCollectList.");
        logCollectList.swap(InspectDefaultConfig::g_defaultLogCollectList);
        return;
    }
    tinyxml2::XMLElement* list = root->FirstChildElement("LogCollect");
    if (list == nullptr) {
        INSPECT_ERROR("there is no [LogCollect] in config.");
        return;
    }
    for (auto* entry = list->FirstChildElement("Log"); entry != nullptr; entry = entry->NextSiblingElement()) {
        logCollectList.push_back(ReadEntry(entry));
    }
    logCollectList.shrink_to_fit();
}
