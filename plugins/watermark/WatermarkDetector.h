// Finds the watermark of one seed in a stream of 8-bit planar frames and reads its payload.
//
// Every frame is reduced to one amplitude estimate per cell (the luma's correlation with the cell's
// chip), clipped to kClipAmplitude so that strong picture structure cannot outvote the mark, and
// weighed by how little the picture makes the cell's votes swing. Over the last kPresenceSeconds
// the votes of each sync cell are summed, and the mean of those sums over their standard error is
// the sync score. The bit channels' votes are averaged per frame; the time word's are summed over a
// sliding one-second window, the CID word's over the last few seconds. The second boundaries are
// found at any offset: a window whose time sums are larger than those of the windows ending in the
// half second before it and in the few frames after it ends a second, because a window that
// straddles two time words loses the bits in which they differ. Each such window's signs are
// decoded and CRC-checked. A decoded time word is reported only once it agrees with another and the
// CID word decodes: two time words whose distance in seconds matches their time stamps, a window of
// the seconds just before that reads as the word it must have carried, or the time stamp the
// detector is already locked on. Once locked, the detector knows where seconds end and what they
// carry: it also reads the windows there, accepts a window that fails its CRC but plainly resembles
// the expected time word, alone or summed with the seconds before it on the bits their words share,
// and on locking reads the seconds before and between the pair that made the lock again. A CID word
// that decodes to another CID counts against the lock. Presence is raised when the sync score (over
// the last kPresenceSeconds, or the frames so far) or a reported second says a mark is there, and
// dropped after kAbsenceSeconds without either.
// Not thread-safe: one detector watches one stream, one frame at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "PayloadCodec.h"
#include "framework/Frame.h"

namespace Lumenseal {

class WatermarkLayout;

// One decoded and confirmed second.
struct Detection {
  std::uint32_t cid = 0;
  std::int32_t timestamp = 0;  // seconds since 2000-01-01 00:00:00 UTC
  double quality = 0.0;        // 0..1, from the spread of the bit sums
  double mediaTime = 0.0;      // seconds from the detector's first frame to the second's start
};

// What one frame brought: confirmed seconds (usually none, at most a few) and a presence change.
struct DetectorReport {
  std::vector<Detection> detections;
  std::optional<bool> presence;  // set when the mark appeared (true) or went (false)
  double presenceMediaTime = 0.0;
};

class WatermarkDetector {
 public:
  static constexpr double kClipAmplitude = 4.0;
  // Presence is judged on the sync votes of this many seconds (or the frames so far): a weak mark
  // builds up a clearer score over two seconds than over one, while unmarked video does not.
  static constexpr double kPresenceSeconds = 2.0;
  // Sync score that raises presence, and the one that keeps it up. Set from unmarked video (see
  // plugins/README.md).
  static constexpr double kPresenceOn = 5.5;
  static constexpr double kPresenceOff = 3.0;
  static constexpr double kAbsenceSeconds = 2.0;

  // A detector for the mark of `seed` in a stream of `frameRate` frames per second.
  WatermarkDetector(std::uint64_t seed, double frameRate);
  ~WatermarkDetector();
  WatermarkDetector(const WatermarkDetector&) = delete;
  WatermarkDetector& operator=(const WatermarkDetector&) = delete;

  // Takes the next frame of the stream and says what it completed.
  DetectorReport ProcessFrame(const Framework::Frame& frame);

  // Whether a mark is present now.
  bool IsPresent() const { return present_; }
  // The sync score of the last kPresenceSeconds, or of the frames so far before that: the mean of
  // the sync cells' votes summed over those frames, over its standard error (0 before the first
  // frame).
  double SyncScore() const;

 private:
  struct FrameMeasure {
    std::vector<double> syncVotes;  // one per sync cell
    std::vector<double> bits;       // the time word's, then the CID word's
  };
  struct DecodedWord {
    PayloadWord word;
    std::int64_t endFrame = 0;
    double quality = 0.0;
  };

  void Configure(int width, int height);
  FrameMeasure Measure(const Framework::Frame& frame);
  void Slide(FrameMeasure measure);
  struct Window {
    std::int64_t endFrame = 0;
    double energy = 0.0;  // sum of the bit sums' magnitudes
    std::vector<double> sums;
  };

  std::optional<Window> FindSecondEnd();
  // Whether no window from `before` windows before windows_[at] to `after` after it has more energy.
  bool IsStrongestWithin(std::size_t at, std::size_t before, std::size_t after) const;
  // Whether windows_[at] ends a second where the lock says one ends, give or take the drift of a
  // frame rate that is not a whole number.
  bool IsExpectedSecondEnd(std::size_t at) const;
  // Whether windows_[at] ends within the drift of `endFrame` and no window within the drift of it
  // has more energy.
  bool EndsSecondNear(std::size_t at, std::int64_t endFrame) const;
  // The kept window that ends a second at `endFrame`, give or take the drift; null when none is kept.
  const Window* SecondEndNear(std::int64_t endFrame) const;
  void DecodeWindow(const Window& window, DetectorReport& report);
  // The word the lock expects in `window`, when the window's bits read as it.
  std::optional<PayloadWord> ExpectedWordIn(const Window& window) const;
  // Whether `window`, ending where a second ends, reads as the time word of `timestamp`: it
  // resembles the word on its own or, when it is close, together with the windows of the seconds
  // before it on the bits their words share with this one.
  bool ReadsAsLockedTime(const Window& window, std::int64_t timestamp) const;
  // Whole seconds from the last reported second's end to `endFrame`.
  std::int64_t SecondsSinceLock(std::int64_t endFrame) const;
  // The frame nearest `endFrame` at which the lock expects a second to end.
  std::int64_t ExpectedEndNear(std::int64_t endFrame) const;
  // Whether a window ending at `endFrame` ends more than half a second after the last reported
  // second; one ending sooner is that second again, seen by a later window or a lock made since
  // at another phase.
  bool IsPastLastReport(std::int64_t endFrame) const;
  void Confirm(const DecodedWord& decoded, DetectorReport& report);
  bool PairUp(const DecodedWord& decoded, DetectorReport& report);
  // Locks on content `cid` from the time words `first` and `last`, `seconds` apart, and reports
  // what the lock reads.
  void Lock(std::uint32_t cid, const DecodedWord& first, const DecodedWord& last, std::int64_t seconds,
            DetectorReport& report);
  // Once the words `first` and `last`, `seconds` apart, have made a lock, reports them, oldest
  // first, together with the seconds before and between them that read as the lock expects: a
  // stream that was hard to lock on to is not missing its first seconds.
  void ReportLockedSeconds(const DecodedWord& first, const DecodedWord& last, std::int64_t seconds,
                           DetectorReport& report);
  // The kept window that ends a second at `endFrame`, read as the lock's second `timestamp`, when
  // it decodes to or resembles what the lock says it carries and is newer than the last report.
  std::optional<DecodedWord> ReadAgain(std::int64_t endFrame, std::int64_t timestamp) const;
  void Emit(std::uint32_t cid, std::int64_t timestamp, const DecodedWord& decoded,
            DetectorReport& report);
  void UpdatePresence(bool confirmed, DetectorReport& report);
  double MediaTime(std::int64_t frame) const;
  // The frame `seconds` (possibly negative) whole seconds after `frame`.
  std::int64_t SecondsLater(std::int64_t frame, std::int64_t seconds) const;

  // Constant after construction
  const std::uint64_t seed_;
  const double frameRate_;
  const int window_;  // frames in a second, rounded
  const int confirmDelay_;  // frames after a second's end before it is decided
  const int boundaryDrift_;  // frames a second's end may stray from a whole number of seconds
  const std::size_t presenceWindow_;  // frames of sync votes that presence is judged on
  const std::size_t cidWindow_;  // frames of votes that the CID word is read from
  const std::size_t windowsKept_;  // far enough back to read the seconds before a new lock

  // Rebuilt when the picture size changes
  std::unique_ptr<WatermarkLayout> layout_;
  std::vector<double> cellAmplitudes_;
  std::vector<double> cellPower_;  // per cell: mean squared vote over about the last second
  std::vector<double> channelWeights_;  // per bit channel, this frame: the sum of its cells' weights

  // The frame measures of the longer of the presence and CID windows, and the sums over each
  // window: the time word's over the last second, the CID word's and the sync cells'
  std::deque<FrameMeasure> history_;
  std::vector<double> timeSums_;
  std::vector<double> cidSums_;
  std::vector<double> syncSums_;  // per sync cell
  // The windows ending at the last frames, oldest first
  std::deque<Window> windows_;
  std::int64_t frameCount_ = 0;

  // Words decoded but not yet confirmed, newest last; and the lock once confirmed
  std::deque<DecodedWord> unconfirmed_;
  bool locked_ = false;
  std::uint32_t lockCid_ = 0;
  std::int64_t lockTimestamp_ = 0;
  std::int64_t lockFrame_ = -1;  // end of the last reported second
  int mismatches_ = 0;

  bool present_ = false;
  std::int64_t lastEvidenceFrame_ = 0;
};

}  // namespace Lumenseal
