// The channel under concurrency: Stop on the control thread while the processing thread hands
// over frames, and channels in one process and in two processes reserving time slots from one
// time-slot file.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "database/TimeTicks.h"
#include "framework/CompletedEvent.h"
#include "framework/testing/ChildProcess.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using QuillmarBasebandSDK::TimeTicks;
using ChannelConcurrencyTest = ChannelTest;

// The slot a run was granted and the part of it the run kept, in ticks.
struct RunSlot {
  unsigned cid = 0;
  std::uint64_t start = 0, grantedEnd = 0, keptEnd = 0;
};

// Starts the initialised `channel`, hands it 30 frames (over a second at 25 fps) and stops it.
// An open-ended run keeps the seconds embedded + 1; a run of requested length its whole slot.
bool EmbedAndStop(TestChannel& channel, RunSlot& run) {
  if (!channel->StartProcessor()) return false;
  const GrantedSlot slot = channel.Slot();
  const bool fed = channel.Feed(30) == 30;
  const std::uint64_t embedded = channel.Embedder().GetEmbeddedDurationInSeconds();
  const std::uint64_t kept = channel->GetEmbeddingDuration() == 0 ? embedded + 1 : slot.seconds;
  run = {slot.cid, TimeTicks::FromSystemTime(slot.start), 0, 0};
  run.grantedEnd = run.start + slot.seconds * TimeTicks::kTicksPerSecond;
  run.keptEnd = run.start + kept * TimeTicks::kTicksPerSecond;
  return channel->StopProcessor() && fed;
}

// Every pair of runs whose slots of one CID share time, ending each slot at `end`.
Strings Overlaps(std::vector<RunSlot> runs, std::uint64_t RunSlot::*end) {
  std::sort(runs.begin(), runs.end(), [](const RunSlot& a, const RunSlot& b) {
    return a.cid != b.cid ? a.cid < b.cid : a.start < b.start;
  });
  Strings overlaps;
  for (std::size_t i = 1; i < runs.size(); ++i) {
    if (runs[i].cid == runs[i - 1].cid && runs[i].start < runs[i - 1].*end) {
      overlaps.push_back("CID " + std::to_string(runs[i].cid) + " from tick " +
                         std::to_string(runs[i].start) + " before tick " +
                         std::to_string(runs[i - 1].*end));
    }
  }
  return overlaps;
}

TEST_F(ChannelConcurrencyTest, StopOnTheControlThreadWhileFramesArrive) {
  TestChannel channel;
  Configure(channel, 10);
  std::atomic<int> stoppedByMedia{0};
  const auto connection = channel->GetChannelSignal(Framework::ChannelSignal::Completed)
                              .ConnectFor<Framework::CompletedEvent>(
                                  [&](const Framework::CompletedEvent&) { ++stoppedByMedia; });
  for (int run = 0; run < 40; ++run) {
    SCOPED_TRACE(run);
    ASSERT_TRUE(channel->InitProcessor());
    ASSERT_TRUE(channel->StartProcessor());
    std::atomic<int> taken{0};
    std::thread processing([&] {
      while (channel.FeedOne()) ++taken;
    });
    const int framesBeforeStop = run % 4 * 3;  // 0: Stop may come before the first frame
    while (taken < framesBeforeStop) std::this_thread::yield();
    EXPECT_TRUE(channel->StopProcessor());
    processing.join();
    // Every frame the host's delivery took was counted, and none after Stop.
    Strings totals;
    for (const Line& line : log_->Lines()) {
      if (line.text.rfind("Processed ", 0) == 0) totals.push_back(line.text);
    }
    ASSERT_EQ(run + 1u, totals.size());
    EXPECT_EQ(0u, totals.back().rfind("Processed " + std::to_string(taken) + " frames at", 0))
        << totals.back();
  }
  EXPECT_EQ(0, stoppedByMedia.load());
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::Error));
}

TEST_F(ChannelConcurrencyTest, TwoChannelsInOneProcessNeverHoldOneCidForOverlappingTime) {
  configuration_.programs = {{"Demo", {101, 102}, {}}};
  std::array<TestChannel, 2> channels;
  for (TestChannel& channel : channels) Configure(channel, 0);
  const auto inParallel = [](const std::function<void(std::size_t)>& step) {
    std::thread other([&] { step(1); });
    step(0);
    other.join();
  };
  std::vector<RunSlot> runs;
  for (int round = 0; round < 8; ++round) {
    SCOPED_TRACE(round);
    // Open-ended and requested runs in turn; both slots are reserved before either run ends.
    channels[0]->SetEmbeddingDuration(round % 2 == 0 ? 0 : 5);
    channels[1]->SetEmbeddingDuration(round % 4 < 2 ? 0 : 5);
    std::array<bool, 2> done{};
    std::array<RunSlot, 2> roundRuns;
    inParallel([&](std::size_t i) { done[i] = channels[i]->InitProcessor(); });
    ASSERT_TRUE(done[0] && done[1]);
    inParallel([&](std::size_t i) { done[i] = EmbedAndStop(channels[i], roundRuns[i]); });
    ASSERT_TRUE(done[0] && done[1]);
    EXPECT_EQ(Strings{}, Overlaps({roundRuns[0], roundRuns[1]}, &RunSlot::grantedEnd));
    runs.insert(runs.end(), roundRuns.begin(), roundRuns.end());
  }
  EXPECT_EQ(Strings{}, Overlaps(runs, &RunSlot::keptEnd));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::Error));
}

TEST_F(ChannelConcurrencyTest, ChannelsInTwoProcessesNeverKeepOneCidForOverlappingTime) {
  constexpr int kProcesses = 2, kRounds = 8;
  configuration_.programs = {{"Demo", {101, 102}, {}}};
  const std::string config = WriteConfiguration(configPath_, configuration_);
  const auto runsFile = [this](int process) { return folder_.File(std::to_string(process)); };
  // Forked while this process has one thread and no database connection.
  std::vector<std::unique_ptr<Framework::Testing::ChildProcess>> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(std::make_unique<Framework::Testing::ChildProcess>([&, process] {
      std::ofstream out(runsFile(process));
      TestChannel channel;
      channel.Configure(config, configuration_, "Demo", 0, nullptr);
      for (int round = 0; round < kRounds; ++round) {
        channel->SetEmbeddingDuration((round + process) % 2 == 0 ? 0 : 5);
        RunSlot run;
        if (!channel->InitProcessor() || !EmbedAndStop(channel, run)) return 1;
        out << run.cid << ' ' << run.start << ' ' << run.grantedEnd << ' ' << run.keptEnd << '\n';
      }
      return 0;
    }));
  }
  for (const auto& child : children) EXPECT_EQ(0, child->Wait());
  std::vector<RunSlot> runs;
  for (int process = 0; process < kProcesses; ++process) {
    std::ifstream in(runsFile(process));
    RunSlot run;
    while (in >> run.cid >> run.start >> run.grantedEnd >> run.keptEnd) runs.push_back(run);
  }
  ASSERT_EQ(static_cast<std::size_t>(kProcesses * kRounds), runs.size());
  EXPECT_EQ(Strings{}, Overlaps(runs, &RunSlot::keptEnd));
}

}  // namespace
}  // namespace QuillmarTesting
