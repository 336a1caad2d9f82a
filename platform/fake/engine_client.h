// The inspection-engine client's state, as Reset sees it.
#pragma once

namespace kivo::fake {

/// The client is not initialised and has no items any more.
void ResetEngineClient();

}  // namespace kivo::fake
