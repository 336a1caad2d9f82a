// Start of the request layer.
#pragma once

class InspectConfigMgr;

/// The configuration; null before Inspect::Init.
extern InspectConfigMgr* g_inspectConfigMgr;

namespace Inspect {

/// Prepares the result table and puts the group catalogue into it; reads the configuration. Call once, before messages
/// are served.
void Init();

/// Does nothing: usage reports are ignored.
void InitDot();

}  // namespace Inspect
