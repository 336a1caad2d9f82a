// The server's configuration: which items the device supports, and what log collection gathers.
//
// The server fills the one instance when it starts. A component of another process that drives collections has an
// instance of its own, empty until that component loads it:
//   1. InspectConfigMgr* config = InspectConfigMgr::GetInstance();   null: no memory
//   2. config->InitInspectConfig();                                  once: a second call appends
//   3. config->GetLogCollectList();                                  the entries; what to do with them: collect.h
// A fresh object (InspectConfigMgr config;) loads as well and leaves the instance alone; but the built-in tables are
// handed out once per process: whoever falls back to them later gets empty lists.
//
// Nothing is reported: what does not convert falls back and is logged through the operations-log client (unit
// "InspectConfigMgr", module 20), to standard error where the process has opened no log. Nothing is thrown but
// std::bad_alloc.
#pragma once

#include <string>
#include <vector>

#include "ominspect/collect.h"
#include "ominspect/records.h"

namespace tinyxml2 {
class XMLElement;
}

#pragma GCC visibility push(default)

/// Filled once at start, by one thread; read without a lock afterwards, by any.
class InspectConfigMgr {
public:
    /// The one instance, made during static initialisation; null when there was no memory for it. Never destroyed.
    static InspectConfigMgr* GetInstance();

    /// The log-collection entries, in file order. A copy.
    std::vector<InspectOneDiagFile> GetLogCollectList();

    /// The supported items, in file order. A copy.
    std::vector<tagKivoOmInspectionItem> GetInspectItemList();

    /// Reads the device's configuration file and fills both lists. An unreadable file gives the default items and no
    /// collection; one without a document element gives both defaults.
    void InitInspectConfig();

    /// The same with another file.
    void InitInspectConfigFrom(const std::string& path);

    /// Fill one list each from the document element, which stays the caller's; null gives the built-in default. Its
    /// document must come from the same version of TinyXML-2.
    void InitInspectItemList(tinyxml2::XMLElement* root);
    void InitLogCollectList(tinyxml2::XMLElement* root);

private:
    friend class InspectConfigMgrPeer;  // lets the unit tests look at the lists and take the one instance away

    std::vector<tagKivoOmInspectionItem> inspectItemList;
    std::vector<InspectOneDiagFile> logCollectList;

    static InspectConfigMgr* m_configMgr;
};

#pragma GCC visibility pop
