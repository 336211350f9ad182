// Deterministic test pictures for the watermark's tests and benchmarks: a moving scene with a
// flat area, smooth gradients, fine texture that drifts, and patches at both ends of the legal
// luma range.
// Stateless; safe to use from any thread.
#pragma once

#include <cstdint>

#include "framework/Frame.h"

namespace Lumenseal {
namespace Testing {

// Paints picture number `index` of the scene into the luma and chroma of `frame`.
void PaintScene(Framework::Frame& frame, std::uint64_t index);

}  // namespace Testing
}  // namespace Lumenseal
