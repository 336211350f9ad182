// A processor of a media stream, with a name, a sender value, a format and a life cycle.
//
// Life cycle (GetState): Created -> InitProcessor -> Initialized -> StartProcessor -> Started
// -> StopProcessor -> Stopped -> StartProcessor again, or DeinitProcessor -> Created.
// InitProcessor on an initialised or stopped processor de-initialises it and initialises it again.
// The *Processor operations check the state, call the matching hook (Init, Start, Stop, Deinit)
// and move the state; an operation that does not fit the state returns false and calls nothing.
//
// Threads: the host calls the life cycle from a control thread and DeliverFrame from a
// processing thread. StopProcessor waits for a frame in progress on another thread, so that Stop
// never runs beside ProcessFrameVolatile; called from within ProcessFrameVolatile it stops at once.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "Frame.h"
#include "PropertyBase.h"
#include "SenderId.h"
#include "VideoFormatInfo.h"

namespace Framework {

enum class ProcessorState : int {
  Created = 0,
  Initialized = 1,
  Started = 2,
  Stopped = 3,
};

class FRAMEWORK_API ProcessorBase : public PropertyBase {
 public:
  ProcessorBase();
  ~ProcessorBase() override;
  ProcessorBase(const ProcessorBase&) = delete;
  ProcessorBase& operator=(const ProcessorBase&) = delete;

  void SetName(const std::string& name) { name_ = name; }
  const std::string& GetName() const { return name_; }

  // The value that names this processor as the sender of its events; unique in the process.
  SenderId GetSender() const { return sender_; }

  ProcessorState GetState() const { return state_; }

  // Created -> Initialized when Init() succeeds. An initialised or stopped processor is
  // de-initialised first, so that it starts afresh; a started one is refused.
  bool InitProcessor();
  // Initialized or Stopped -> Started when Start() succeeds.
  bool StartProcessor();
  // Started -> Stopped, then Stop(); returns what Stop() returned. Waits for a frame in progress.
  bool StopProcessor();
  // Initialized or Stopped -> Created, then Deinit(). A started processor is stopped first.
  bool DeinitProcessor();

  // Hands `frame` to ProcessFrameVolatile when the processor is started; false otherwise.
  bool DeliverFrame(Frame* frame);

  // Sets the format of the stream. Optional; the default stores it for GetFormat.
  virtual void SetFormat(const VideoFormatInfo& format);
  const VideoFormatInfo& GetFormat() const { return format_; }

  // Processes a frame that may be changed in place. Optional; the default calls ProcessFrame.
  virtual void ProcessFrameVolatile(Frame* frame);
  // Looks at a frame without changing it. Optional; the default does nothing.
  virtual void ProcessFrame(const Frame* frame);

  // Life-cycle hooks, each optional; the defaults succeed and do nothing.
  virtual bool Init();
  virtual bool Start();
  virtual bool Stop();
  virtual void Deinit();

 private:
  bool Transition(ProcessorState from, ProcessorState to);

  const SenderId sender_;
  std::string name_;
  VideoFormatInfo format_;
  std::atomic<ProcessorState> state_{ProcessorState::Created};
  std::recursive_mutex frameMutex_;  // Held while a frame is processed and while Stop runs
};

}  // namespace Framework
