// The process monitor's state, as Reset sees it.
#pragma once

namespace kivo::fake {

/// Forgets the registered process.
void ResetMonitor();

}  // namespace kivo::fake
