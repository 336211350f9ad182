// The keyed geometry of the watermark for one seed and one picture size.
//
// The luma plane is cut into square cells of kCellSize-ish pixels (the size follows the picture
// height, so the pattern has the same coarseness at every resolution). Each whole cell carries one
// chip: the smooth, zero-mean shape sin(2 pi x / C) * sin(2 pi y / C) over the cell, times a keyed
// sign, times the cell's channel value. Channel 0 is the sync channel (always +1); channels 1..48
// carry the bits of the second's time word, channels 49..96 those of the CID word. Cells are
// dealt to channels by a keyed shuffle in rounds of kSyncShare sync slots, kTimeShare slots per
// time bit and one per CID bit, so every bit of a word gets the same number of cells spread over
// the whole picture. A time bit has kTimeShare times the cells of a CID bit because it must be
// read from one second, while the CID, which never changes, builds up over several. The chip is
// orthogonal to anything that depends on x alone or y alone (flat areas, horizontal and vertical
// edges, gradients), which keeps the picture out of the detector's correlations. Cells past the
// last whole column or row stay unmarked.
// Constant after construction; safe to share between threads.
#pragma once

#include <cstdint>
#include <vector>

#include "PayloadCodec.h"

namespace Lumenseal {

class WatermarkLayout {
 public:
  static constexpr int kSyncChannel = 0;
  static constexpr int kFirstTimeChannel = 1;  // channel of time word bit 47; bit 0 is 48
  static constexpr int kFirstCidChannel = kFirstTimeChannel + PayloadCodec::kWordBits;
  static constexpr int kChannelCount = kFirstCidChannel + PayloadCodec::kWordBits;
  static constexpr int kSyncShare = 24;  // slots of the sync channel in each round of cells
  static constexpr int kTimeShare = 2;   // slots of each time bit in each round of cells
  static constexpr int kShapeScaleBits = 14;  // shape samples are sin() * 2^14

  // The layout of `seed` for a `width` x `height` luma plane.
  WatermarkLayout(std::uint64_t seed, int width, int height);

  int Width() const { return width_; }
  int Height() const { return height_; }
  int CellSize() const { return cellSize_; }
  int Columns() const { return columns_; }
  int Rows() const { return rows_; }
  int CellCount() const { return columns_ * rows_; }

  // Channel of cell `cell` (row-major): kSyncChannel, or the first time or CID channel plus the
  // bit's index in its word (0 = word bit 47).
  int Channel(int cell) const { return channels_[cell]; }
  // Keyed sign of the chip in cell `cell`: +1 or -1.
  int Sign(int cell) const { return signs_[cell]; }
  // Number of cells of channel `channel`.
  int CellsOf(int channel) const { return cellsPerChannel_[channel]; }

  // The chip's profile along one axis: sin(2 pi (i + 0.5) / C) * 2^kShapeScaleBits, i < C.
  const std::vector<std::int16_t>& Profile() const { return profile_; }

  // The least-squares amplitude, in luma levels, of each cell's chip (sign not applied) in the
  // luma plane `luma` with rows `pitch` bytes apart; row-major into `amplitudes`.
  void ProjectCells(const std::uint8_t* luma, int pitch, std::vector<double>& amplitudes) const;

  // Cell size for a picture `height` rows high: a multiple of 8, at least 8.
  static int CellSizeFor(int height);

 private:
  int width_;
  int height_;
  int cellSize_;
  int columns_;
  int rows_;
  std::vector<int> channels_;
  std::vector<int> signs_;
  std::vector<int> cellsPerChannel_;
  std::vector<std::int16_t> profile_;
  double chipEnergy_ = 0.0;  // sum of the chip's squares in real units
};

}  // namespace Lumenseal
