// The accounted memory's state, as Reset sees it.
#pragma once

namespace kivo::fake {

/// Sets all counts to zero; blocks that live on are counted nowhere any more.
void ResetMemory();

}  // namespace kivo::fake
