#include "WatermarkDetector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <vector>

#include "WatermarkEmbedder.h"
#include "WatermarkLayout.h"
#include "testing/SyntheticScene.h"

namespace Lumenseal {
namespace {

constexpr std::uint64_t kSeed = 0x5EED'1234'ABCD'0001ull;
constexpr std::uint32_t kCid = 101;
constexpr std::int64_t kSlotStart = 848'000'000;

struct Clip {
  double frameRate;
  std::vector<Framework::Frame> frames;
};

// What a stretch of a clip is marked with; frames of the stretch outside [from, to) are not.
struct Marking {
  std::uint32_t cid = kCid;
  std::int64_t slotStart = kSlotStart;
  std::uint64_t from = 0;
  std::uint64_t to = ~0ull;
};

// Appends `seconds` of the moving test scene, marked as one embedding session from its first frame.
void AppendScene(Clip& clip, int seconds, const Marking& marking) {
  const Framework::VideoFormatInfo format(Framework::PixelLayout::Yuv420P8, 640, 360, clip.frameRate);
  WatermarkEmbedder embedder(kSeed, {});
  const auto count = static_cast<std::uint64_t>(clip.frameRate * seconds);
  for (std::uint64_t index = 0; index < count; ++index) {
    clip.frames.emplace_back(format);
    Testing::PaintScene(clip.frames.back(), clip.frames.size());
    EmbedRequest request;
    request.frameIndex = index;
    request.frameRate = clip.frameRate;
    request.cid = marking.cid;
    request.slotStart = marking.slotStart;
    request.bypass = index < marking.from || index >= marking.to;
    embedder.Embed(clip.frames.back(), request);
  }
}

Clip SceneClip(double frameRate, int seconds, const Marking& marking = {}) {
  Clip clip{frameRate, {}};
  AppendScene(clip, seconds, marking);
  return clip;
}

constexpr double kGrey = 128.0;

// Reverses, at a fifth of its strength, the mark of the first `bits` bit channels in `frame`, a
// marked flat grey picture.
void ReverseBitsFaintly(Framework::Frame& frame, const WatermarkLayout& layout, int bits) {
  std::uint8_t* luma = frame.GetPlane(0);
  const int size = layout.CellSize();
  for (int cell = 0; cell < layout.CellCount(); ++cell) {
    const int channel = layout.Channel(cell);
    if (channel == WatermarkLayout::kSyncChannel || channel > bits) continue;
    const int left = cell % layout.Columns() * size;
    const int top = cell / layout.Columns() * size;
    for (int y = top; y < top + size; ++y) {
      std::uint8_t* row = luma + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(0);
      for (int x = left; x < left + size; ++x) {
        row[x] = static_cast<std::uint8_t>(std::lround(kGrey - (row[x] - kGrey) / 5.0));
      }
    }
  }
}

// A flat grey 640x360 25 fps clip, marked from its first frame as strong as `strength` says, frame
// i as frame markedAs(i) of the session (by default i itself); each frame is then handed to
// `afterMarking`, when given, with the second it belongs to.
Clip FlatMarkedClip(int seconds, EmbedderStrength strength,
                    const std::function<void(Framework::Frame&, std::int64_t second)>& afterMarking,
                    const std::function<std::uint64_t(std::uint64_t)>& markedAs = {}) {
  Clip clip{25.0, {}};
  const Framework::VideoFormatInfo format(Framework::PixelLayout::Yuv420P8, 640, 360, clip.frameRate);
  WatermarkEmbedder embedder(kSeed, strength);
  for (std::uint64_t index = 0; index < static_cast<std::uint64_t>(clip.frameRate * seconds); ++index) {
    clip.frames.emplace_back(format);
    Framework::Frame& frame = clip.frames.back();
    for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
      const auto bytes = static_cast<std::size_t>(frame.GetPitch(plane)) * format.GetPlaneHeight(plane);
      std::fill_n(frame.GetPlane(plane), bytes, static_cast<std::uint8_t>(kGrey));
    }
    EmbedRequest request;
    request.frameIndex = markedAs ? markedAs(index) : index;
    request.frameRate = clip.frameRate;
    request.cid = kCid;
    request.slotStart = kSlotStart;
    embedder.Embed(frame, request);
    if (afterMarking) afterMarking(frame, WatermarkEmbedder::SecondOf(index, clip.frameRate));
  }
  return clip;
}

// A flat clip, clearly marked, whose frame i shows what frame markedAs(i) of the session carries:
// pictures an encoder left as they were, or a stream that goes on later than it should.
Clip ReplayedFlatClip(int seconds, const std::function<std::uint64_t(std::uint64_t)>& markedAs) {
  return FlatMarkedClip(seconds, EmbedderStrength{2.0, 2}, {}, markedAs);
}

// A flat clip marked without clipping in the detector. In the seconds listed in `damaged`, the
// first `damagedBits` bits of the time word (its kind and highest value bits, which the words of
// neighbouring seconds share) read faintly wrong: by default five, more than soft decoding repairs,
// so those seconds do not decode on their own, yet they plainly carry their word.
Clip DamagedFlatClip(int seconds, std::initializer_list<std::int64_t> damaged,
                     int damagedBits = PayloadCodec::kChaseBits + 1) {
  const auto depth = static_cast<int>(WatermarkDetector::kClipAmplitude);
  const WatermarkLayout layout(kSeed, 640, 360);
  return FlatMarkedClip(seconds, EmbedderStrength{static_cast<double>(depth), depth},
                        [&](Framework::Frame& frame, std::int64_t second) {
                          if (std::find(damaged.begin(), damaged.end(), second) != damaged.end()) {
                            ReverseBitsFaintly(frame, layout, damagedBits);
                          }
                        });
}

// A flat clip with a faint mark, in which 90 % of the cells are swamped, afresh in every frame, by
// 4x4 blocks of up to +-100 grey levels (picture detail moving fast): their votes swing to the clip
// amplitude and bury the mark, which only the remaining flat cells carry clearly.
Clip SwampedFlatClip(int seconds) {
  const WatermarkLayout layout(kSeed, 640, 360);
  std::uint32_t state = 2024;
  return FlatMarkedClip(seconds, EmbedderStrength{1.0, 1}, [&](Framework::Frame& frame, std::int64_t) {
    const int size = layout.CellSize();
    for (int cell = 0; cell < layout.CellCount(); ++cell) {
      if (cell % 10 == 9) continue;
      const int left = cell % layout.Columns() * size;
      const int top = cell / layout.Columns() * size;
      for (int blockY = top; blockY < top + size; blockY += 4) {
        for (int blockX = left; blockX < left + size; blockX += 4) {
          state = state * 1664525u + 1013904223u;
          const int shift = static_cast<int>(state >> 24) % 201 - 100;
          for (int y = blockY; y < blockY + 4; ++y) {
            std::uint8_t* row = frame.GetPlane(0) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(0);
            for (int x = blockX; x < blockX + 4; ++x) row[x] = static_cast<std::uint8_t>(row[x] + shift);
          }
        }
      }
    }
  });
}

// Stream frame in the middle of the second that `found` was read from, when the detector started
// at stream frame `firstFrame`.
std::uint64_t MiddleFrame(const Detection& found, double frameRate, std::size_t firstFrame) {
  return firstFrame + static_cast<std::uint64_t>((found.mediaTime + 0.5) * frameRate + 0.5);
}

struct Seen {
  std::vector<Detection> detections;
  std::vector<double> reportedAt;  // detector media time of the frame that completed each one
  std::vector<DetectorReport> presenceChanges;
  std::vector<double> presenceReportedAt;
};

Seen Detect(const Clip& clip, std::uint64_t seed, std::size_t firstFrame = 0) {
  WatermarkDetector detector(seed, clip.frameRate);
  Seen seen;
  for (std::size_t index = firstFrame; index < clip.frames.size(); ++index) {
    auto report = detector.ProcessFrame(clip.frames[index]);
    for (const auto& found : report.detections) {
      seen.detections.push_back(found);
      seen.reportedAt.push_back(static_cast<double>(index - firstFrame + 1) / clip.frameRate);
    }
    if (report.presence) {
      seen.presenceChanges.push_back(report);
      seen.presenceReportedAt.push_back(static_cast<double>(index - firstFrame + 1) / clip.frameRate);
    }
  }
  return seen;
}

TEST(WatermarkDetector, RoundTripOnMovingTexturedVideo) {
  // A second is decided a few frames after it ends, so the clip's last second stays unreported.
  const Clip clip = SceneClip(25.0, 7);
  const Seen seen = Detect(clip, kSeed);
  ASSERT_EQ(6u, seen.detections.size());
  for (std::size_t second = 0; second < seen.detections.size(); ++second) {
    SCOPED_TRACE(second);
    const Detection& found = seen.detections[second];
    EXPECT_EQ(kCid, found.cid);
    EXPECT_EQ(kSlotStart + static_cast<std::int64_t>(second), found.timestamp);
    EXPECT_NEAR(static_cast<double>(second), found.mediaTime, 1e-9);
    EXPECT_GT(found.quality, 0.5);
  }
  EXPECT_LE(seen.reportedAt.front(), 2.1) << "two seconds, and the frames that confirm the end";
  ASSERT_EQ(1u, seen.presenceChanges.size());
  EXPECT_EQ(true, seen.presenceChanges[0].presence);
  EXPECT_EQ(0.0, seen.presenceChanges[0].presenceMediaTime);
  EXPECT_LE(seen.presenceReportedAt[0], 2 / 25.0) << "a clear mark is seen within the first frames";
}

TEST(WatermarkDetector, LocksOnAtEveryFrameOffset) {
  constexpr double kFrameRate = 10.0;
  const Clip clip = SceneClip(kFrameRate, 7);
  for (std::size_t offset = 0; offset < 2 * static_cast<std::size_t>(kFrameRate); ++offset) {
    SCOPED_TRACE(offset);
    const Seen seen = Detect(clip, kSeed, offset);
    ASSERT_GE(seen.detections.size(), 3u);
    EXPECT_LE(seen.reportedAt.front(), 3.0);
    for (const Detection& found : seen.detections) {
      EXPECT_EQ(kCid, found.cid);
      EXPECT_EQ(kSlotStart + WatermarkEmbedder::SecondOf(MiddleFrame(found, kFrameRate, offset), kFrameRate),
                found.timestamp);
    }
  }
}

// Time stamps of `seen`'s detections, in the order reported.
std::vector<std::int64_t> Timestamps(const Seen& seen) {
  std::vector<std::int64_t> timestamps;
  for (const Detection& found : seen.detections) timestamps.push_back(found.timestamp);
  return timestamps;
}

bool AllShow(const Seen& seen, std::uint32_t cid) {
  return std::all_of(seen.detections.begin(), seen.detections.end(),
                     [cid](const Detection& found) { return found.cid == cid; });
}

std::vector<std::int64_t> SlotSeconds(std::int64_t from, std::int64_t to) {
  std::vector<std::int64_t> seconds;
  for (std::int64_t second = from; second <= to; ++second) seconds.push_back(kSlotStart + second);
  return seconds;
}

TEST(WatermarkDetector, ReadsDamagedSecondsAsTheLockExpectsThem) {
  {
    SCOPED_TRACE("a damaged second while locked");
    const Seen seen = Detect(DamagedFlatClip(8, {4}), kSeed);
    EXPECT_EQ(SlotSeconds(0, 6), Timestamps(seen));
    EXPECT_TRUE(AllShow(seen, kCid));
  }
  {
    SCOPED_TRACE("eight faint wrong bits, too many to resemble the word alone, read with the seconds before");
    const Seen seen = Detect(DamagedFlatClip(8, {4}, 8), kSeed);
    EXPECT_EQ(SlotSeconds(0, 6), Timestamps(seen));
  }
  // Seconds `first` to `last` are reported in order, all once the lock is made at `lockedAt`.
  const auto expectReadAgainInOrder = [](const Seen& seen, std::int64_t first, std::int64_t last,
                                         double lockedAt) {
    EXPECT_EQ(SlotSeconds(first, last), Timestamps(seen));
    EXPECT_TRUE(AllShow(seen, kCid));
    ASSERT_FALSE(seen.reportedAt.empty());
    EXPECT_GT(seen.reportedAt.front(), lockedAt) << "read again once the lock was made";
    EXPECT_LT(seen.reportedAt.front(), lockedAt + 1.0);
    for (std::size_t i = 0; i < seen.detections.size(); ++i) {
      EXPECT_NEAR(static_cast<double>(first) + static_cast<double>(i), seen.detections[i].mediaTime, 1e-9);
    }
  };
  {
    SCOPED_TRACE("six damaged seconds before the first clean one (6), which locks with the one before it");
    expectReadAgainInOrder(Detect(DamagedFlatClip(10, {0, 1, 2, 3, 4, 5}), kSeed), 0, 8, 7.0);
  }
  {
    SCOPED_TRACE("a lone clean second (2) locks with the damaged one before it");
    expectReadAgainInOrder(Detect(DamagedFlatClip(8, {0, 1, 3, 4}), kSeed), 0, 6, 3.0);
  }
  {
    SCOPED_TRACE("seconds too damaged to lock with, between the words of the pair that locks (2 and 5)");
    expectReadAgainInOrder(Detect(DamagedFlatClip(8, {0, 1, 3, 4}, 8), kSeed), 2, 6, 6.0);
  }
  {
    SCOPED_TRACE("damaged seconds with nothing to lock on to");
    EXPECT_TRUE(Detect(DamagedFlatClip(4, {0, 1, 2, 3}), kSeed).detections.empty());
  }
}

TEST(WatermarkDetector, ReportsNoSecondTwiceWhenTheLockIsMadeAgain) {
  // An encoder may leave a picture as it was: seconds 4 and 5 still show second 3, which breaks the
  // lock. The stream then goes on four frames later, so the new lock ends its seconds elsewhere,
  // and reading back from it finds second 3 once more.
  const Clip clip = ReplayedFlatClip(12, [](std::uint64_t index) -> std::uint64_t {
    if (index < 100) return index;
    return index < 150 ? 99 : index - 4;
  });
  const Seen seen = Detect(clip, kSeed);
  const std::vector<std::int64_t> timestamps = Timestamps(seen);
  ASSERT_FALSE(timestamps.empty());
  EXPECT_EQ(kSlotStart, timestamps.front());
  EXPECT_TRUE(std::is_sorted(timestamps.begin(), timestamps.end()));
  EXPECT_EQ(timestamps.end(), std::adjacent_find(timestamps.begin(), timestamps.end()));
}

TEST(WatermarkDetector, AWindowAcrossTwoSecondsNeitherMovesNorBreaksTheLock) {
  // The first 14 frames of second 5 still show second 4 (an encoder late with the change): the
  // window of second 4's frames ends 14 frames after the second, where the lock does not expect
  // an end, and the window where it does reads mostly second 4. Second 5 may be lost; the seconds
  // after it must come on time.
  const Clip clip = ReplayedFlatClip(
      9, [](std::uint64_t index) -> std::uint64_t { return index >= 125 && index < 139 ? 124 : index; });
  const Seen seen = Detect(clip, kSeed);
  std::vector<std::int64_t> timestamps = Timestamps(seen);
  const auto notAfter = std::adjacent_find(timestamps.begin(), timestamps.end(), std::greater_equal<>());
  EXPECT_TRUE(notAfter == timestamps.end()) << "each second once, in order";
  timestamps.erase(std::remove(timestamps.begin(), timestamps.end(), kSlotStart + 5), timestamps.end());
  EXPECT_EQ(SlotSeconds(0, 7).size() - 1, timestamps.size()) << "every second but the late one";
  for (std::size_t i = 0; i < seen.detections.size(); ++i) {
    const double second = static_cast<double>(seen.detections[i].timestamp - kSlotStart);
    EXPECT_NEAR(second, seen.detections[i].mediaTime, 1e-9) << "the lock keeps its phase";
    EXPECT_LT(seen.reportedAt[i], std::max(second, 1.0) + 1.2) << "reported as soon as it ends";
  }
}

TEST(WatermarkDetector, ReadsTheMarkFromTheCellsThePictureLeavesCalm) {
  const Seen seen = Detect(SwampedFlatClip(8), kSeed);
  ASSERT_GE(seen.detections.size(), 4u);
  for (const Detection& found : seen.detections) {
    EXPECT_EQ(kCid, found.cid);
    EXPECT_EQ(kSlotStart + static_cast<std::int64_t>(std::lround(found.mediaTime)), found.timestamp);
  }
}

TEST(WatermarkDetector, FindsNothingWithoutTheRightSeed) {
  const Clip marked = SceneClip(25.0, 6);
  const Seen wrongSeed = Detect(marked, kSeed ^ 1);
  EXPECT_TRUE(wrongSeed.detections.empty());
  EXPECT_TRUE(wrongSeed.presenceChanges.empty());

  Marking none;
  none.from = ~0ull;
  const Clip unmarked = SceneClip(25.0, 6, none);
  const Seen nothing = Detect(unmarked, kSeed);
  EXPECT_TRUE(nothing.detections.empty());
  EXPECT_TRUE(nothing.presenceChanges.empty());
}

TEST(WatermarkDetector, PresenceComesAndGoesWithTheMark) {
  constexpr double kFrameRate = 25.0;
  Marking middle;
  middle.from = 50;
  middle.to = 150;
  const Clip clip = SceneClip(kFrameRate, 10, middle);
  const Seen seen = Detect(clip, kSeed);
  ASSERT_EQ(2u, seen.presenceChanges.size());
  EXPECT_EQ(true, seen.presenceChanges[0].presence);
  EXPECT_NEAR(2.0, seen.presenceChanges[0].presenceMediaTime, 1.0);
  EXPECT_EQ(false, seen.presenceChanges[1].presence);
  EXPECT_NEAR(6.0, seen.presenceChanges[1].presenceMediaTime, 1.0);
  ASSERT_FALSE(seen.detections.empty());
  for (const Detection& found : seen.detections) {
    const std::int64_t second = WatermarkEmbedder::SecondOf(MiddleFrame(found, kFrameRate, 0), kFrameRate);
    EXPECT_EQ(kSlotStart + second, found.timestamp);
    EXPECT_GE(second, 2);
    EXPECT_LE(second, 5);
  }
}

TEST(WatermarkDetector, RelocksWhenTheContentChanges) {
  Clip clip = SceneClip(25.0, 5);
  Marking next;
  next.cid = 202;
  next.slotStart = 900'000'000;
  AppendScene(clip, 6, next);
  const Seen seen = Detect(clip, kSeed);
  std::vector<std::int32_t> first;
  std::vector<std::int32_t> second;
  for (const Detection& found : seen.detections) {
    ASSERT_TRUE(found.cid == kCid || found.cid == next.cid) << found.cid;
    (found.cid == kCid ? first : second).push_back(found.timestamp);
    if (found.cid == next.cid) {
      EXPECT_GE(found.mediaTime, 5.0 - 0.1);
    }
  }
  ASSERT_GE(first.size(), 4u);
  EXPECT_EQ(kSlotStart, first.front());
  // The new session's last second is not decided; the ones before it run up to it one by one.
  ASSERT_GE(second.size(), 3u);
  EXPECT_EQ(next.slotStart + 4, second.back());
  for (std::size_t i = 1; i < second.size(); ++i) EXPECT_EQ(second[i - 1] + 1, second[i]);
}

TEST(WatermarkDetector, FollowsANewCidWhoseTimeCarriesOn) {
  // A channel going from one programme to the next: the new session's time stamps run on. The CID
  // is read from the last few seconds, so the new session's first second may still show the old
  // one; from its second on, every second shows the new CID.
  Clip clip = SceneClip(25.0, 5);
  Marking next;
  next.cid = 202;
  next.slotStart = kSlotStart + 5;
  AppendScene(clip, 10, next);
  const Seen seen = Detect(clip, kSeed);
  ASSERT_EQ(SlotSeconds(0, 13), Timestamps(seen));
  for (const Detection& found : seen.detections) {
    const std::int64_t second = found.timestamp - kSlotStart;
    SCOPED_TRACE(second);
    if (second != 5) {
      EXPECT_EQ(second < 5 ? kCid : next.cid, found.cid);
    }
  }
}

}  // namespace
}  // namespace Lumenseal
