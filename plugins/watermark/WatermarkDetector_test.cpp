#include "WatermarkDetector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "WatermarkEmbedder.h"
#include "WatermarkLayout.h"
#include "testing/SyntheticScene.h"

namespace Lumenseal {
namespace {

constexpr std::uint64_t kSeed = 0x5EED'1234'ABCD'0001ull;
constexpr std::uint32_t kCid = 101;
constexpr std::int64_t kSlotStart = 848'000'000;
constexpr int kGrey = 128;

struct Clip {
  double frameRate = 25.0;
  std::vector<Framework::Frame> frames;
};

// One embedding session of a 640x360 clip, the moving test scene or flat grey: its frames outside
// [from, to) are left unmarked, and each then goes to `touch` with its second.
struct Session {
  std::uint32_t cid = kCid;
  std::int64_t slotStart = kSlotStart;
  std::uint64_t from = 0;
  std::uint64_t to = ~0ull;
  bool flat = false;
  EmbedderStrength strength;
  std::function<void(Framework::Frame&, std::int64_t second)> touch;
};

// `clip` with `seconds` of `session` added.
Clip Marked(int seconds, const Session& session = {}, Clip clip = {}) {
  const Framework::VideoFormatInfo format(Framework::PixelLayout::Yuv420P8, 640, 360,
                                          clip.frameRate);
  WatermarkEmbedder embedder(kSeed, session.strength);
  for (std::uint64_t index = 0; index < clip.frameRate * seconds; ++index) {
    Framework::Frame& frame = clip.frames.emplace_back(format);
    if (session.flat) std::fill_n(frame.GetPlane(0), frame.GetSize(), kGrey);
    if (!session.flat) Testing::PaintScene(frame, clip.frames.size());
    const bool bypass = index < session.from || index >= session.to;
    embedder.Embed(frame, {index, clip.frameRate, session.cid, session.slotStart, bypass});
    if (session.touch) session.touch(frame, WatermarkEmbedder::SecondOf(index, clip.frameRate));
  }
  return clip;
}

// A flat clip marked without clipping in the detector. In the `damaged` seconds the mark of the
// first `damagedBits` bits of the time word (kind and highest value bits, shared with neighbouring
// seconds) is reversed at a fifth of its strength: beyond soft decoding, plainly their word.
Clip DamagedFlatClip(int seconds, const std::vector<std::int64_t>& damaged, int damagedBits) {
  Session session;
  session.flat = true;
  const auto depth = static_cast<int>(WatermarkDetector::kClipAmplitude);
  session.strength = {static_cast<double>(depth), depth};
  session.touch = [&](Framework::Frame& frame, std::int64_t second) {
    if (std::find(damaged.begin(), damaged.end(), second) == damaged.end()) return;
    const WatermarkLayout layout(kSeed, 640, 360);
    const int size = layout.CellSize();
    for (int y = 0; y < layout.Rows() * size; ++y) {
      for (int x = 0; x < layout.Columns() * size; ++x) {
        const int channel = layout.Channel(y / size * layout.Columns() + x / size);
        if (channel == WatermarkLayout::kSyncChannel || channel > damagedBits) continue;
        std::uint8_t& sample = frame.GetPlane(0)[y * frame.GetPitch(0) + x];
        sample = static_cast<std::uint8_t>(std::lround(kGrey - (sample - kGrey) / 5.0));
      }
    }
  };
  return Marked(seconds, session);
}

struct Seen {
  std::vector<Detection> detections;
  std::vector<std::int64_t> timestamps;
  std::vector<double> reportedAt;  // detector media time of the frame that completed each one
  std::vector<DetectorReport> presenceChanges;
};

Seen Detect(const Clip& clip, std::uint64_t seed = kSeed, std::size_t firstFrame = 0) {
  WatermarkDetector detector(seed, clip.frameRate);
  Seen seen;
  for (std::size_t index = firstFrame; index < clip.frames.size(); ++index) {
    const DetectorReport report = detector.ProcessFrame(clip.frames[index]);
    for (const auto& found : report.detections) {
      seen.detections.push_back(found);
      seen.timestamps.push_back(found.timestamp);
      seen.reportedAt.push_back(static_cast<double>(index - firstFrame + 1) / clip.frameRate);
    }
    if (report.presence) seen.presenceChanges.push_back(report);
  }
  return seen;
}

// The time stamps of the session's seconds `from` to `to`.
std::vector<std::int64_t> SlotSeconds(std::int64_t from, std::int64_t to) {
  std::vector<std::int64_t> seconds;
  for (std::int64_t second = from; second <= to; ++second) seconds.push_back(kSlotStart + second);
  return seconds;
}

// A second is decided a few frames after it ends: two seconds, and the frames that confirm the end.
TEST(WatermarkDetector, LocksOnAtEveryFrameOffset) {
  const Clip clip = Marked(7, {}, Clip{10.0, {}});
  for (std::size_t offset = 0; offset < 20; ++offset) {
    SCOPED_TRACE(offset);
    const Seen seen = Detect(clip, kSeed, offset);
    ASSERT_GE(seen.detections.size(), 3u);
    EXPECT_LE(seen.reportedAt.front(), offset == 0 ? 2.1 : 3.0);
    for (const Detection& found : seen.detections) {
      EXPECT_EQ(kCid, found.cid);
      const double middle = offset / 10.0 + found.mediaTime + 0.5;
      EXPECT_EQ(kSlotStart + static_cast<std::int64_t>(middle), found.timestamp);
      EXPECT_GT(found.quality, 0.5);
    }
  }
}

TEST(WatermarkDetector, ReadsDamagedSecondsAsTheLockExpectsThem) {
  constexpr int kFive = PayloadCodec::kChaseBits + 1;
  static const struct {
    const char* what;
    int seconds;
    std::vector<std::int64_t> damaged;
    int damagedBits;
    std::int64_t first, last;  // the seconds reported, in order (none when first > last)
    double lockedAt;           // 0, or when the lock is made: all of them are reported after it
  } cases[] = {
      {"a damaged second while locked", 8, {4}, kFive, 0, 6, 0.0},
      {"too many to resemble alone: read with the seconds before", 8, {4}, 8, 0, 6, 0.0},
      {"a lone clean second (2) locks with the one before", 8, {0, 1, 3, 4}, kFive, 0, 6, 3.0},
      {"too damaged to lock with, between the pair (2, 5)", 8, {0, 1, 3, 4}, 8, 2, 6, 6.0},
      {"nothing to lock on to", 4, {0, 1, 2, 3}, kFive, 1, 0, 0.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Seen seen = Detect(DamagedFlatClip(c.seconds, c.damaged, c.damagedBits));
    EXPECT_EQ(SlotSeconds(c.first, c.last), seen.timestamps);
    for (std::size_t i = 0; i < seen.detections.size(); ++i) {
      EXPECT_EQ(kCid, seen.detections[i].cid);
      EXPECT_NEAR(static_cast<double>(c.first + i), seen.detections[i].mediaTime, 1e-9);
    }
    if (c.lockedAt > 0.0 && !seen.reportedAt.empty()) {
      EXPECT_GT(seen.reportedAt.front(), c.lockedAt) << "read again once the lock was made";
      EXPECT_LT(seen.reportedAt.front(), c.lockedAt + 1.0);
    }
  }
}

// A faint mark in which nine cells in ten are swamped afresh in every frame by 4x4 blocks of up to
// +-100 levels (detail moving fast): the seconds are read from the calm tenth.
TEST(WatermarkDetector, ReadsTheMarkFromTheCellsThePictureLeavesCalm) {
  const WatermarkLayout layout(kSeed, 640, 360);
  Session swamped;
  swamped.flat = true;
  swamped.strength = {1.0, 1};
  std::uint32_t state = 2024;
  swamped.touch = [&](Framework::Frame& frame, std::int64_t) {
    for (int y = 0; y < 360; y += 4) {
      for (int x = 0; x < 640; x += 4) {
        state = state * 1664525u + 1013904223u;
        const int cell = y / layout.CellSize() * layout.Columns() + x / layout.CellSize();
        if (cell % 10 == 9) continue;
        for (int row = y; row < y + 4; ++row) {
          std::uint8_t* samples = frame.GetPlane(0) + row * frame.GetPitch(0) + x;
          for (int i = 0; i < 4; ++i) samples[i] += static_cast<int>(state >> 24) % 201 - 100;
        }
      }
    }
  };
  const Seen seen = Detect(Marked(8, swamped));
  ASSERT_GE(seen.detections.size(), 4u);
  for (const Detection& found : seen.detections) {
    EXPECT_EQ(kCid, found.cid);
    EXPECT_EQ(kSlotStart + std::lround(found.mediaTime), found.timestamp);
  }
}

// A mark from the third second to the sixth, which a detector of another seed never sees.
TEST(WatermarkDetector, PresenceComesAndGoesWithTheMark) {
  Session middle;
  middle.from = 50;
  middle.to = 150;
  const Clip clip = Marked(10, middle);
  const Seen seen = Detect(clip);
  ASSERT_EQ(2u, seen.presenceChanges.size());
  EXPECT_EQ(true, seen.presenceChanges[0].presence);
  EXPECT_NEAR(2.0, seen.presenceChanges[0].presenceMediaTime, 1.0);
  EXPECT_EQ(false, seen.presenceChanges[1].presence);
  EXPECT_NEAR(6.0, seen.presenceChanges[1].presenceMediaTime, 1.0);
  ASSERT_FALSE(seen.detections.empty());
  for (const Detection& found : seen.detections) {
    EXPECT_EQ(kSlotStart + std::lround(found.mediaTime), found.timestamp);
    EXPECT_TRUE(found.mediaTime >= 2.0 && found.mediaTime <= 5.0) << found.mediaTime;
  }
  const Seen wrongSeed = Detect(clip, kSeed ^ 1);
  EXPECT_TRUE(wrongSeed.detections.empty());
  EXPECT_TRUE(wrongSeed.presenceChanges.empty());
}

// A programme change: a new session, with a new CID, whose time carries on. The CID is read from
// the last few seconds, so the new session's first second may still show the old one; from its
// second on, every second shows the new CID, and no second is lost or doubled.
TEST(WatermarkDetector, FollowsANewCidWhoseTimeCarriesOn) {
  Session next;
  next.cid = 202;
  next.slotStart = kSlotStart + 5;
  const Seen seen = Detect(Marked(10, next, Marked(5)));
  ASSERT_EQ(SlotSeconds(0, 13), seen.timestamps);
  for (const Detection& found : seen.detections) {
    const std::int64_t second = found.timestamp - kSlotStart;
    EXPECT_TRUE(second == 5 || found.cid == (second < 5 ? kCid : next.cid)) << second;
  }
}

}  // namespace
}  // namespace Lumenseal
