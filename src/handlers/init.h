// Start of the request layer.
#pragma once

namespace Inspect {

/// Prepares the result table and puts the group catalogue into it. Call once, before messages are served.
void Init();

/// Does nothing: usage reports are ignored.
void InitDot();

}  // namespace Inspect
