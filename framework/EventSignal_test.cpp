#include "EventSignal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "CompletedEvent.h"
#include "ProgressEvent.h"
#include "testing/RecordingLogSink.h"

namespace Framework {
namespace {

TEST(EventSignal, DeliversUntilTheConnectionEnds) {
  EventSignal<EventBase> signal;
  int calls = 0;
  {
    EventConnection connection = signal.Connect([&](const EventBase&) { ++calls; });
    signal.Raise(ProgressEvent());
    EXPECT_EQ(1u, signal.ConnectionCount());
  }
  signal.Raise(ProgressEvent());
  EXPECT_EQ(1, calls);
  EXPECT_EQ(0u, signal.ConnectionCount());

  EventConnection explicitEnd = signal.Connect([&](const EventBase&) { ++calls; });
  explicitEnd.disconnect();
  signal.Raise(ProgressEvent());
  EXPECT_EQ(1, calls);
}

TEST(EventSignal, TypedConnectionsSeeOnlyTheirEvents) {
  EventSignal<EventBase> signal;
  int completed = 0;
  int status = 0;
  auto onCompleted = signal.ConnectFor<CompletedEvent>([&](const CompletedEvent& event) {
    EXPECT_TRUE(event.GetErrorAbort());
    ++completed;
  });
  auto onStatus = signal.ConnectFor<StatusEvent>([&](const StatusEvent&) { ++status; });
  CompletedEvent done;
  done.SetErrorAbort(true);
  signal.Raise(done);
  signal.Raise(ProgressEvent());
  EXPECT_EQ(1, completed);
  EXPECT_EQ(2, status);
}

TEST(EventSignal, AThrowingSlotIsLoggedAndTheOthersStillRun) {
  Testing::ScopedLogRecording log;
  EventSignal<EventBase> signal;
  int laterCalls = 0;
  auto thrower = signal.Connect([](const EventBase&) { throw std::runtime_error("slot broke"); });
  auto later = signal.Connect([&](const EventBase&) { ++laterCalls; });
  EXPECT_NO_THROW(signal.Raise(ProgressEvent()));
  EXPECT_EQ(1, laterCalls);
  EXPECT_TRUE(log->Has(EventLevel::Error, "EventSignal slot: exception: slot broke"));
}

TEST(EventSignal, EitherSideMayGoFirst) {
  EventConnection outlivesSignal;
  {
    EventSignal<EventBase> signal;
    outlivesSignal = signal.Connect([](const EventBase&) {});
  }
  EXPECT_NO_THROW(outlivesSignal.disconnect());

  EventSignal<EventBase> signal;
  {
    EventConnection receiverGone = signal.Connect([](const EventBase&) {});
  }
  EXPECT_NO_THROW(signal.Raise(ProgressEvent()));
}

// A receiver destroyed on one thread while another keeps raising: the owner it was connected
// with is kept alive during a call and never called once it is gone.
TEST(EventSignal, TrackedReceiverDestroyedWhileAnotherThreadRaises) {
  struct Receiver {
    std::atomic<int> calls{0};
    std::atomic<bool> destroyed{false};
    ~Receiver() { destroyed = true; }
  };
  EventSignal<EventBase> signal;
  std::atomic<bool> stop{false};
  std::atomic<int> callsAfterDestruction{0};
  std::thread raiser([&] {
    while (!stop) signal.Raise(ProgressEvent());
  });
  for (int round = 0; round < 200; ++round) {
    auto receiver = std::make_shared<Receiver>();
    Receiver* raw = receiver.get();
    EventConnection connection = signal.Connect(
        [raw, &callsAfterDestruction](const EventBase&) {
          if (raw->destroyed) ++callsAfterDestruction;
          ++raw->calls;
        },
        receiver);
    while (raw->calls == 0) std::this_thread::yield();
    receiver.reset();
  }
  stop = true;
  raiser.join();
  EXPECT_EQ(0, callsAfterDestruction);
}

// Connections made and ended on one thread while another raises: no call is lost or doubled for
// a connection that lives across the raise.
TEST(EventSignal, ConnectAndDisconnectWhileAnotherThreadRaises) {
  EventSignal<EventBase> signal;
  std::atomic<int> steadyCalls{0};
  auto steady = signal.Connect([&](const EventBase&) { ++steadyCalls; });
  constexpr int kRaises = 2000;
  std::thread raiser([&] {
    for (int i = 0; i < kRaises; ++i) signal.Raise(ProgressEvent());
  });
  for (int i = 0; i < 2000; ++i) {
    EventConnection transient = signal.Connect([](const EventBase&) {});
  }
  raiser.join();
  EXPECT_EQ(kRaises, steadyCalls);
  EXPECT_EQ(1u, signal.ConnectionCount());
}

}  // namespace
}  // namespace Framework
