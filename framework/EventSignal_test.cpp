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

TEST(EventSignal, AThrowingSlotIsLoggedAndEitherSideMayEndFirst) {
  Testing::ScopedLogRecording log;
  EventConnection outlivesSignal;
  int completed = 0;
  {
    EventSignal<EventBase> signal;
    outlivesSignal = signal.Connect([](const EventBase&) { throw std::runtime_error("broke"); });
    auto after = signal.ConnectFor<CompletedEvent>([&](const CompletedEvent&) { ++completed; });
    signal.Raise(ProgressEvent());
    signal.Raise(CompletedEvent());
  }
  EXPECT_NO_THROW(outlivesSignal.disconnect());
  EXPECT_EQ(1, completed);
  EXPECT_TRUE(log->Has(EventLevel::Error, "EventSignal slot: exception: broke"));
}

// Receivers connected and destroyed on one thread while another keeps raising: a receiver is
// kept alive during a call and never called once it is gone (AddressSanitizer sees any such
// call), and a connection that lives across it all misses no raise and gets none twice.
TEST(EventSignal, ReceiversComeAndGoWhileAnotherThreadRaises) {
  EventSignal<EventBase> signal;
  std::atomic<int> steadyCalls{0};
  auto steady = signal.Connect([&](const EventBase&) { ++steadyCalls; });
  std::atomic<bool> stop{false};
  int raises = 0;
  std::thread raiser([&] {
    for (; !stop; ++raises) signal.Raise(ProgressEvent());
  });
  for (int round = 0; round < 200; ++round) {
    auto receiver = std::make_shared<std::atomic<int>>(0);
    std::atomic<int>* calls = receiver.get();
    EventConnection connection =
        signal.Connect([calls](const EventBase&) { ++*calls; }, receiver);
    while (*calls == 0) std::this_thread::yield();
    receiver.reset();  // while still connected
  }
  stop = true;
  raiser.join();
  EXPECT_EQ(raises, steadyCalls);
  EXPECT_EQ(1u, signal.ConnectionCount());
}

}  // namespace
}  // namespace Framework
