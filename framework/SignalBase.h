// The untyped face of an event signal, and the connection handle that receivers keep.
//
// A receiver keeps the EventConnection that Connect returned; destroying or disconnecting it
// stops further calls. Either side may go away first: a connection outliving its signal
// disconnects as a no-op.
#pragma once

#include <boost/signals2/connection.hpp>
#include <cstddef>

#include "platform/Export.h"

namespace Framework {

// Disconnects itself when destroyed. Movable, not copyable.
using EventConnection = boost::signals2::scoped_connection;

class FRAMEWORK_API SignalBase {
 public:
  SignalBase() = default;
  virtual ~SignalBase();
  SignalBase(const SignalBase&) = delete;
  SignalBase& operator=(const SignalBase&) = delete;

  // Disconnects every receiver.
  virtual void DisconnectAll() = 0;

  // How many receivers are connected now.
  virtual std::size_t ConnectionCount() const = 0;
};

}  // namespace Framework
