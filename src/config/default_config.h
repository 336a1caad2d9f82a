// The built-in tables that stand in for the configuration file.
#pragma once

#include <string>
#include <vector>

#include "ominspect/collect.h"
#include "ominspect/records.h"

/// Moved into the configuration manager when used, and empty afterwards.
struct InspectDefaultConfig {
    static std::vector<tagKivoOmInspectionItem> g_supportInspectList;
    static std::vector<InspectOneDiagFile> g_defaultLogCollectList;
};

/// The path of the configuration file.
extern const std::string g_inspectConfigPath;
