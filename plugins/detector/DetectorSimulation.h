// Part of the Lumenseal detector library's public, header-only API: how a host or a test makes
// the reference detector report results without a watermark in the picture.
//
// Set a value of the named type on the detector (PropertyBase::SetProperty) between frames, on
// the thread that feeds them; the detector then reports it as found in the next frame it looks
// at, with the delivery its construction properties ask for (at once when blocking, one frame
// later when not; results still held back at Stop are raised then or dropped). Each set reports
// once; results are reported in the order they were set.
#pragma once

namespace DetectorSimulation {

constexpr char kDetection[] = "SimulatedDetection";  // an LSNDetection
constexpr char kPresence[] = "SimulatedPresence";    // a CBasebandWMDetection
constexpr char kScale[] = "SimulatedScale";          // a ScaleFoundEvent
constexpr char kMirrored[] = "SimulatedMirrored";    // a MirroredDetectionEvent

}  // namespace DetectorSimulation
