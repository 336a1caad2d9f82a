// The operations-log client's state, as Reset sees it.
#pragma once

namespace kivo::fake {

/// The client is not initialised and has no logs any more.
void ResetLogClient();

}  // namespace kivo::fake
