// The server's configuration: which items the device supports, and what log collection gathers.
#pragma once

#include <vector>

#include "ominspect/collect.h"
#include "ominspect/records.h"

namespace tinyxml2 {
class XMLElement;
}

/// Filled once at start, before messages are served; read without a lock afterwards.
class InspectConfigMgr {
public:
    /// The one instance, made during static initialisation; null when there was no memory for it.
    [[gnu::visibility("default")]] static InspectConfigMgr* GetInstance();

    /// The log-collection entries, in file order.
    [[gnu::visibility("default")]] std::vector<InspectOneDiagFile> GetLogCollectList();

    /// The supported items, in file order.
    std::vector<tagKivoOmInspectionItem> GetInspectItemList();

    /// Reads the configuration file and fills both lists. An unreadable file gives the default items and no
    /// collection; one without a document element gives both defaults.
    void InitInspectConfig();

    /// Fill one list each from the document element; null gives the built-in default.
    void InitInspectItemList(tinyxml2::XMLElement* root);
    void InitLogCollectList(tinyxml2::XMLElement* root);

private:
    std::vector<tagKivoOmInspectionItem> inspectItemList;
    std::vector<InspectOneDiagFile> logCollectList;

    static InspectConfigMgr* m_configMgr;
};
