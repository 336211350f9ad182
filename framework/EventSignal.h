// A signal that delivers events to connected receivers, on the thread that raises it.
//
// Thread-safe: connecting, disconnecting and raising may happen on different threads. After a
// disconnect returns no new call starts; a call already running on another thread completes.
// A receiver that may be destroyed while another thread raises connects with an owner it holds
// through a std::shared_ptr: the slot is not called once the owner is gone, and the owner is kept
// alive while its slot runs. An exception thrown by a slot is logged and does not stop the other
// slots, nor leave Raise.
#pragma once

#include <boost/signals2/signal.hpp>
#include <functional>
#include <memory>

#include "NoThrow.h"
#include "SignalBase.h"

namespace Framework {

template <typename Event>
class EventSignal : public SignalBase {
 public:
  using Slot = std::function<void(const Event&)>;

  // Connects `slot`; it is called for every event raised until the connection ends.
  EventConnection Connect(Slot slot) { return EventConnection(signal_.connect(Guarded(std::move(slot)))); }

  // Connects `slot`, which is called only while `owner` is alive, and keeps `owner` alive during a call.
  EventConnection Connect(Slot slot, const std::weak_ptr<void>& owner) {
    typename Signal::slot_type tracked(Guarded(std::move(slot)));
    tracked.track_foreign(owner);
    return EventConnection(signal_.connect(tracked));
  }

  // Connects `handler` for the events whose dynamic type is Derived (or derives from it);
  // other events are passed over.
  template <typename Derived>
  EventConnection ConnectFor(std::function<void(const Derived&)> handler) {
    return Connect([handler = std::move(handler)](const Event& event) {
      if (const auto* derived = dynamic_cast<const Derived*>(&event)) handler(*derived);
    });
  }

  // Connects the member `handler` of `receiver` for the events of its argument's type.
  template <typename Derived, typename Receiver>
  EventConnection ConnectFor(Receiver* receiver, void (Receiver::*handler)(const Derived&)) {
    return ConnectFor<Derived>(
        [receiver, handler](const Derived& event) { (receiver->*handler)(event); });
  }

  // Calls every connected slot with `event`, in connection order.
  void Raise(const Event& event) const { signal_(event); }

  void DisconnectAll() override { signal_.disconnect_all_slots(); }
  std::size_t ConnectionCount() const override { return signal_.num_slots(); }

 private:
  using Signal = boost::signals2::signal<void(const Event&)>;

  static Slot Guarded(Slot slot) {
    return [slot = std::move(slot)](const Event& event) {
      NoThrow("EventSignal slot", [&] { slot(event); });
    };
  }

  mutable Signal signal_;
};

}  // namespace Framework
