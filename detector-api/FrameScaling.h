// Part of the Lumenseal detector library's public, header-only API: the product includes these
// result types to read what the detector reports, and never links the detector library.
//
// FrameScaling::Scale: how much the picture was scaled relative to the marked original.
#pragma once

namespace FrameScaling {

struct Scale {
  // Width of the picture over the width of the original.
  double horizontal = 1.0;
  // Height of the picture over the height of the original.
  double vertical = 1.0;
};

}  // namespace FrameScaling
