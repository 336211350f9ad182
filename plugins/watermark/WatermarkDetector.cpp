#include "WatermarkDetector.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "WatermarkLayout.h"

namespace Lumenseal {
namespace {

// A second's end is decided this fraction of a second after it (at least one frame later).
constexpr int kConfirmDelayDivisor = 12;
// Unconfirmed words kept, and how far apart (in seconds) two words may be to confirm each other.
constexpr std::size_t kUnconfirmedKept = 4;
constexpr std::int64_t kMaxPairSeconds = 3;
// How far (in windows) a word's window end may be from a whole number of seconds after another's.
constexpr double kBoundaryTolerance = 0.25;
constexpr int kMismatchesToUnlock = 2;
// How many seconds before the pair that makes a lock are read again once the lock is known.
constexpr std::int64_t kReadBackSeconds = 8;
// Per frame, the bit channels' votes: the time word's bits, then the CID word's.
constexpr std::size_t kBitChannels = 2 * PayloadCodec::kWordBits;
// A window that the lock expects to carry a time word, and whose own bits disagree with it by at
// most this share of their weight, is read together with the windows of this many seconds before.
// From one second to the next a time word keeps most of its bits, so the earlier windows add to
// them; the bits that change are read from the window alone.
constexpr double kCloseShare = 0.15;
constexpr std::int64_t kSharedBitSeconds = 3;
// Seconds of votes that the CID word is read from: it never changes within a session, so a longer
// sum reads it from weaker marks, at the cost of reading a new session's CID later.
constexpr double kCidSeconds = 4.0;
// Bit-sum signal-to-noise ratios that map to quality 0 (noise alone) and quality 1.
constexpr double kNoiseSnr = 1.33;
constexpr double kFullQualitySnr = 4.0;
constexpr double kMinimumVariance = 1e-12;
// A cell's vote weighs 1 / (this + its mean squared vote): flat cells, where the mark stands alone,
// weigh up to 9 times as much as cells whose votes swing to the clip amplitude.
constexpr double kVotePowerFloor = 2.0;
// Sync sums beyond this many times their median size are clipped before scoring.
constexpr double kScoreClipMedians = 3.0;
// Frame rate assumed when the caller gives none.
constexpr double kDefaultFrameRate = 25.0;

// The word of kind `kind` in soft bits `sums`, when they decode to one.
std::optional<PayloadWord> DecodeKind(const std::vector<double>& sums, WordKind kind) {
  auto word = PayloadCodec::DecodeSoft(sums);
  if (word && word->kind != kind) return std::nullopt;
  return word;
}

// Adds `sign` times the votes from `votes[first]` on to `sums`, one to each.
void AddVotes(std::vector<double>& sums, const std::vector<double>& votes, std::size_t first, double sign) {
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += sign * votes[first + i];
}

double Quality(const std::vector<double>& sums) {
  const double count = static_cast<double>(sums.size());
  double mean = 0.0;
  for (double sum : sums) mean += std::abs(sum);
  mean /= count;
  double variance = 0.0;
  for (double sum : sums) variance += (std::abs(sum) - mean) * (std::abs(sum) - mean);
  const double spread = std::sqrt(variance / count);
  if (spread <= 0.0) return 1.0;
  return std::clamp((mean / spread - kNoiseSnr) / (kFullQualitySnr - kNoiseSnr), 0.0, 1.0);
}

}  // namespace

WatermarkDetector::WatermarkDetector(std::uint64_t seed, double frameRate)
    : seed_(seed),
      frameRate_(frameRate > 0.0 ? frameRate : kDefaultFrameRate),
      window_(std::max(1, static_cast<int>(std::lround(frameRate_)))),
      confirmDelay_(std::max(1, window_ / kConfirmDelayDivisor)),
      boundaryDrift_(frameRate_ == std::round(frameRate_) ? 0 : 1),
      presenceWindow_(static_cast<std::size_t>(
          std::max<long>(window_, std::lround(kPresenceSeconds * frameRate_)))),
      cidWindow_(static_cast<std::size_t>(std::max<long>(window_, std::lround(kCidSeconds * frameRate_)))),
      windowsKept_(static_cast<std::size_t>((kMaxPairSeconds + kReadBackSeconds + 1) * window_ +
                                            confirmDelay_)),
      timeSums_(PayloadCodec::kWordBits, 0.0),
      cidSums_(PayloadCodec::kWordBits, 0.0) {}

WatermarkDetector::~WatermarkDetector() = default;

double WatermarkDetector::SyncScore() const {
  const auto cells = static_cast<double>(syncSums_.size());
  if (history_.empty() || cells < 2) return 0.0;
  // Smooth pictures hold much of the chip in a few cells, whose sums would make the score swing
  // far more than chance allows: sums are clipped at kScoreClipMedians times their median size.
  std::vector<double> sizes(syncSums_.size());
  std::transform(syncSums_.begin(), syncSums_.end(), sizes.begin(),
                 [](double vote) { return std::abs(vote); });
  const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
  std::nth_element(sizes.begin(), middle, sizes.end());
  const double limit = kScoreClipMedians * *middle;
  double sum = 0.0;
  double squares = 0.0;
  for (double vote : syncSums_) {
    const double clipped = std::clamp(vote, -limit, limit);
    sum += clipped;
    squares += clipped * clipped;
  }
  const double mean = sum / cells;
  const double variance = std::max(squares / cells - mean * mean, kMinimumVariance);
  return mean / std::sqrt(variance / cells);
}

std::int64_t WatermarkDetector::SecondsLater(std::int64_t frame, std::int64_t seconds) const {
  return frame + std::llround(static_cast<double>(seconds) * frameRate_);
}

double WatermarkDetector::MediaTime(std::int64_t frame) const {
  return static_cast<double>(frame) / frameRate_;
}

DetectorReport WatermarkDetector::ProcessFrame(const Framework::Frame& frame) {
  DetectorReport report;
  const auto& format = frame.GetFormat();
  Configure(format.GetPlaneWidth(0), format.GetPlaneHeight(0));
  Slide(Measure(frame));
  const auto secondEnd = FindSecondEnd();
  if (secondEnd) DecodeWindow(*secondEnd, report);
  UpdatePresence(!report.detections.empty(), report);
  ++frameCount_;
  return report;
}

void WatermarkDetector::Configure(int width, int height) {
  if (layout_ && layout_->Width() == width && layout_->Height() == height) return;
  layout_ = std::make_unique<WatermarkLayout>(seed_, width, height);
  history_.clear();
  std::fill(timeSums_.begin(), timeSums_.end(), 0.0);
  std::fill(cidSums_.begin(), cidSums_.end(), 0.0);
  syncSums_.assign(static_cast<std::size_t>(layout_->CellsOf(WatermarkLayout::kSyncChannel)), 0.0);
  cellPower_.assign(static_cast<std::size_t>(layout_->CellCount()), 0.0);
  windows_.clear();
}

WatermarkDetector::FrameMeasure WatermarkDetector::Measure(const Framework::Frame& frame) {
  layout_->ProjectCells(frame.GetPlane(0), frame.GetPitch(0), cellAmplitudes_);
  FrameMeasure measure;
  measure.bits.assign(kBitChannels, 0.0);
  measure.syncVotes.reserve(syncSums_.size());
  channelWeights_.assign(kBitChannels, 0.0);
  // Each cell's mean squared vote over about the last second sets its weight: cells whose votes
  // moving picture detail swings count for less, because the mark drowns there. Votes weigh alike
  // until a second has been seen.
  const auto seen = static_cast<std::int64_t>(history_.size());
  const double rate = 1.0 / static_cast<double>(std::min<std::int64_t>(seen + 1, window_));
  const bool weighted = seen >= window_;
  for (int cell = 0; cell < layout_->CellCount(); ++cell) {
    const auto index = static_cast<std::size_t>(cell);
    const double amplitude = std::clamp(cellAmplitudes_[index], -kClipAmplitude, kClipAmplitude);
    const double vote = layout_->Sign(cell) * amplitude;
    const int channel = layout_->Channel(cell);
    cellPower_[index] += (vote * vote - cellPower_[index]) * rate;
    const double weight = weighted ? 1.0 / (kVotePowerFloor + cellPower_[index]) : 1.0;
    if (channel == WatermarkLayout::kSyncChannel) {
      measure.syncVotes.push_back(weight * vote);
      continue;
    }
    const auto bit = static_cast<std::size_t>(channel - WatermarkLayout::kFirstTimeChannel);
    measure.bits[bit] += weight * vote;
    channelWeights_[bit] += weight;
  }
  for (std::size_t bit = 0; bit < measure.bits.size(); ++bit) measure.bits[bit] /= channelWeights_[bit];
  return measure;
}

void WatermarkDetector::Slide(FrameMeasure measure) {
  constexpr std::size_t kCidBits = PayloadCodec::kWordBits;
  AddVotes(timeSums_, measure.bits, 0, 1.0);
  AddVotes(cidSums_, measure.bits, kCidBits, 1.0);
  AddVotes(syncSums_, measure.syncVotes, 0, 1.0);
  history_.push_back(std::move(measure));
  // Each sum drops the frame that has just left its window.
  const auto leaving = [this](std::size_t window) -> const FrameMeasure* {
    return history_.size() > window ? &history_[history_.size() - 1 - window] : nullptr;
  };
  if (const FrameMeasure* old = leaving(static_cast<std::size_t>(window_))) {
    AddVotes(timeSums_, old->bits, 0, -1.0);
  }
  if (const FrameMeasure* old = leaving(cidWindow_)) AddVotes(cidSums_, old->bits, kCidBits, -1.0);
  if (const FrameMeasure* old = leaving(presenceWindow_)) AddVotes(syncSums_, old->syncVotes, 0, -1.0);
  if (history_.size() > std::max(presenceWindow_, cidWindow_)) history_.pop_front();
}

std::optional<WatermarkDetector::Window> WatermarkDetector::FindSecondEnd() {
  if (history_.size() < static_cast<std::size_t>(window_)) return std::nullopt;
  double energy = 0.0;
  for (double sum : timeSums_) energy += std::abs(sum);
  windows_.push_back(Window{frameCount_, energy, timeSums_});
  if (windows_.size() > windowsKept_) windows_.pop_front();
  // The candidate is the window confirmDelay_ frames back; it ends a second when no window of
  // the half second before it nor of the frames since has more energy.
  const auto candidate = static_cast<std::ptrdiff_t>(windows_.size()) - 1 - confirmDelay_;
  if (candidate < 0) return std::nullopt;
  const auto at = static_cast<std::size_t>(candidate);
  const auto halfSecond = static_cast<std::size_t>(window_ / 2);
  if (IsStrongestWithin(at, halfSecond, static_cast<std::size_t>(confirmDelay_)) || IsExpectedSecondEnd(at)) {
    return windows_[at];
  }
  return std::nullopt;
}

bool WatermarkDetector::IsStrongestWithin(std::size_t at, std::size_t before, std::size_t after) const {
  const std::size_t first = at >= before ? at - before : 0;
  const std::size_t last = std::min(windows_.size() - 1, at + after);
  for (std::size_t i = first; i <= last; ++i) {
    if (i != at && windows_[i].energy > windows_[at].energy) return false;
  }
  return true;
}

bool WatermarkDetector::IsExpectedSecondEnd(std::size_t at) const {
  if (!locked_) return false;
  const std::int64_t endFrame = windows_[at].endFrame;
  if (SecondsSinceLock(endFrame) < 1) return false;
  return EndsSecondNear(at, ExpectedEndNear(endFrame));
}

bool WatermarkDetector::EndsSecondNear(std::size_t at, std::int64_t endFrame) const {
  const auto drift = static_cast<std::size_t>(boundaryDrift_);
  return std::abs(windows_[at].endFrame - endFrame) <= boundaryDrift_ && IsStrongestWithin(at, drift, drift);
}

const WatermarkDetector::Window* WatermarkDetector::SecondEndNear(std::int64_t endFrame) const {
  if (windows_.empty()) return nullptr;
  const std::int64_t at = endFrame - windows_.front().endFrame;
  for (std::int64_t i = std::max<std::int64_t>(0, at - boundaryDrift_);
       i <= at + boundaryDrift_ && i < static_cast<std::int64_t>(windows_.size()); ++i) {
    const auto index = static_cast<std::size_t>(i);
    if (EndsSecondNear(index, endFrame)) return &windows_[index];
  }
  return nullptr;
}

void WatermarkDetector::DecodeWindow(const Window& window, DetectorReport& report) {
  auto word = DecodeKind(window.sums, WordKind::Time);
  if (!word) word = ExpectedWordIn(window);
  if (!word) return;
  Confirm(DecodedWord{*word, window.endFrame, Quality(window.sums)}, report);
}

std::optional<PayloadWord> WatermarkDetector::ExpectedWordIn(const Window& window) const {
  if (!locked_) return std::nullopt;
  const std::int64_t seconds = SecondsSinceLock(window.endFrame);
  if (seconds < 1) return std::nullopt;
  const std::int64_t timestamp = lockTimestamp_ + seconds;
  const PayloadWord expected = PayloadCodec::TimeWord(timestamp);
  // Off the expected second's end a window mixes two words; it only counts if it reads alone.
  const bool atExpectedEnd = std::abs(window.endFrame - ExpectedEndNear(window.endFrame)) <= boundaryDrift_;
  const bool reads = atExpectedEnd ? ReadsAsLockedTime(window, timestamp)
                                   : PayloadCodec::Resembles(window.sums, expected);
  if (!reads) return std::nullopt;
  return expected;
}

bool WatermarkDetector::ReadsAsLockedTime(const Window& window, std::int64_t timestamp) const {
  const PayloadWord expected = PayloadCodec::TimeWord(timestamp);
  const double share = PayloadCodec::DisagreeingShare(window.sums, expected);
  if (share <= PayloadCodec::kResemblanceShare) return true;
  if (share > kCloseShare) return false;
  std::vector<double> combined = window.sums;
  const std::uint64_t bits = PayloadCodec::Encode(expected);
  for (std::int64_t back = 1; back <= kSharedBitSeconds; ++back) {
    const Window* earlier = SecondEndNear(SecondsLater(window.endFrame, -back));
    if (earlier == nullptr) break;
    const std::uint64_t shared = ~(bits ^ PayloadCodec::Encode(PayloadCodec::TimeWord(timestamp - back)));
    for (int bit = 0; bit < PayloadCodec::kWordBits; ++bit) {
      if ((shared >> (PayloadCodec::kWordBits - 1 - bit)) & 1u) {
        combined[static_cast<std::size_t>(bit)] += earlier->sums[static_cast<std::size_t>(bit)];
      }
    }
  }
  return PayloadCodec::Resembles(combined, expected);
}

std::int64_t WatermarkDetector::SecondsSinceLock(std::int64_t endFrame) const {
  return std::llround(static_cast<double>(endFrame - lockFrame_) / frameRate_);
}

std::int64_t WatermarkDetector::ExpectedEndNear(std::int64_t endFrame) const {
  return SecondsLater(lockFrame_, SecondsSinceLock(endFrame));
}

bool WatermarkDetector::IsPastLastReport(std::int64_t endFrame) const {
  return endFrame - lockFrame_ > window_ / 2;
}

void WatermarkDetector::Confirm(const DecodedWord& decoded, DetectorReport& report) {
  // While the second boundary is still being found, a later window of the same second may decode
  // too: the one chosen later is the better aligned.
  if (locked_ && !IsPastLastReport(decoded.endFrame)) return;
  if (!unconfirmed_.empty() && decoded.endFrame - unconfirmed_.back().endFrame <= window_ / 2) {
    unconfirmed_.pop_back();
  }
  if (locked_) {
    const std::int64_t seconds = SecondsSinceLock(decoded.endFrame);
    const std::int64_t expected = lockTimestamp_ + seconds;
    const std::int64_t read = PayloadCodec::TimestampOf(decoded.word);
    // A window ending away from where the lock expects a second to end spans two seconds, and as
    // neighbouring time words share most of their bits, it may read as either: it neither moves
    // the lock nor counts against it.
    const bool onTime = std::abs(decoded.endFrame - ExpectedEndNear(decoded.endFrame)) <= confirmDelay_;
    if (!onTime && std::abs(read - expected) <= 1) return;
    const auto cid = DecodeKind(cidSums_, WordKind::Cid);
    const bool consistent = read == expected && (!cid || cid->value == lockCid_);
    if (consistent) {
      mismatches_ = 0;
      Emit(lockCid_, expected, decoded, report);
      return;
    }
    if (++mismatches_ < kMismatchesToUnlock) {
      unconfirmed_.push_back(decoded);
      return;
    }
    locked_ = false;
  }
  if (PairUp(decoded, report)) return;
  unconfirmed_.push_back(decoded);
  if (unconfirmed_.size() > kUnconfirmedKept) unconfirmed_.pop_front();
}

bool WatermarkDetector::PairUp(const DecodedWord& decoded, DetectorReport& report) {
  const auto cid = DecodeKind(cidSums_, WordKind::Cid);
  if (!cid) return false;
  const std::int64_t timestamp = PayloadCodec::TimestampOf(decoded.word);
  for (auto earlier = unconfirmed_.rbegin(); earlier != unconfirmed_.rend(); ++earlier) {
    const std::int64_t frames = decoded.endFrame - earlier->endFrame;
    const std::int64_t seconds = std::llround(static_cast<double>(frames) / window_);
    const std::int64_t tolerance = std::max<std::int64_t>(1, std::llround(kBoundaryTolerance * window_));
    if (seconds < 1 || seconds > kMaxPairSeconds || std::abs(frames - seconds * window_) > tolerance) {
      continue;
    }
    if (timestamp - PayloadCodec::TimestampOf(earlier->word) != seconds) continue;
    Lock(cid->value, DecodedWord(*earlier), decoded, seconds, report);
    return true;
  }
  // A weak mark may decode only now and then: a window of the seconds just before that reads as
  // the word it must have carried is a partner too.
  for (std::int64_t seconds = 1; seconds <= kMaxPairSeconds; ++seconds) {
    const Window* window = SecondEndNear(SecondsLater(decoded.endFrame, -seconds));
    if (window == nullptr || !IsPastLastReport(window->endFrame)) continue;
    if (!ReadsAsLockedTime(*window, timestamp - seconds)) continue;
    const PayloadWord word = PayloadCodec::TimeWord(timestamp - seconds);
    Lock(cid->value, DecodedWord{word, window->endFrame, Quality(window->sums)}, decoded, seconds, report);
    return true;
  }
  return false;
}

void WatermarkDetector::Lock(std::uint32_t cid, const DecodedWord& first, const DecodedWord& last,
                             std::int64_t seconds, DetectorReport& report) {
  locked_ = true;
  lockCid_ = cid;
  mismatches_ = 0;
  unconfirmed_.clear();
  ReportLockedSeconds(first, last, seconds, report);
}

void WatermarkDetector::ReportLockedSeconds(const DecodedWord& first, const DecodedWord& last,
                                             std::int64_t seconds, DetectorReport& report) {
  const std::int64_t firstTimestamp = PayloadCodec::TimestampOf(first.word);
  for (std::int64_t offset = -kReadBackSeconds; offset <= seconds; ++offset) {
    const std::int64_t timestamp = firstTimestamp + offset;
    if (offset == 0 || offset == seconds) {
      Emit(lockCid_, timestamp, offset == 0 ? first : last, report);
      continue;
    }
    const std::int64_t endFrame = SecondsLater(first.endFrame, offset);
    if (const auto again = ReadAgain(endFrame, timestamp)) Emit(lockCid_, timestamp, *again, report);
  }
}

std::optional<WatermarkDetector::DecodedWord> WatermarkDetector::ReadAgain(std::int64_t endFrame,
                                                                           std::int64_t timestamp) const {
  if (!IsPastLastReport(endFrame)) return std::nullopt;
  const Window* window = SecondEndNear(endFrame);
  if (window == nullptr) return std::nullopt;
  const PayloadWord expected = PayloadCodec::TimeWord(timestamp);
  const auto word = PayloadCodec::DecodeSoft(window->sums);
  if (word ? !(*word == expected) : !ReadsAsLockedTime(*window, timestamp)) return std::nullopt;
  return DecodedWord{expected, window->endFrame, Quality(window->sums)};
}

void WatermarkDetector::Emit(std::uint32_t cid, std::int64_t timestamp, const DecodedWord& decoded,
                             DetectorReport& report) {
  lockFrame_ = decoded.endFrame;
  lockTimestamp_ = timestamp;
  report.detections.push_back(Detection{cid, static_cast<std::int32_t>(timestamp), decoded.quality,
                                        MediaTime(decoded.endFrame - window_ + 1)});
}

void WatermarkDetector::UpdatePresence(bool confirmed, DetectorReport& report) {
  // The score of the frames seen so far is as good a test as that of a full second, and a clear
  // mark shows within a few frames.
  const double score = SyncScore();
  if (confirmed || score >= (present_ ? kPresenceOff : kPresenceOn)) {
    lastEvidenceFrame_ = frameCount_;
    if (!present_) {
      present_ = true;
      report.presence = true;
      // The mark appeared within the last second (or the frames so far, when fewer).
      const auto seen = std::min<std::int64_t>(window_, static_cast<std::int64_t>(history_.size()));
      report.presenceMediaTime = MediaTime(frameCount_ + 1 - seen);
    }
    return;
  }
  if (present_ && frameCount_ - lastEvidenceFrame_ > kAbsenceSeconds * frameRate_) {
    present_ = false;
    report.presence = false;
    // A window shows a strong mark until the mark's last frame leaves it: the time given is when
    // the last second that showed it ended, as if presence were judged on one second.
    const auto lag = static_cast<std::int64_t>(presenceWindow_) - window_;
    report.presenceMediaTime = MediaTime(std::max<std::int64_t>(0, lastEvidenceFrame_ + 1 - lag));
  }
}

}  // namespace Lumenseal
