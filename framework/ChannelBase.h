// A processor that owns named child processors (algorithms) and receives the host's events.
//
// The host creates a channel, calls OnCreateChannel once with its index, and then runs the life
// cycle of ProcessorBase. Children are created by plug-in class name through the plug-in
// registry and found again by instance name; the channel owns them and deletes them with itself.
// A child created with `managedByChannel` set is initialised, started, stopped and de-initialised
// by the base Init, Start, Stop and Deinit; other children are the derived channel's to drive.
//
// The host raises its events (progress, completion, dropped frames, signal loss and return,
// format changes, memory allocation errors) on the channel's framework signals.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AlgorithmBase.h"
#include "EventSignal.h"
#include "ProcessorBase.h"

namespace Framework {

// The host events a channel can receive, one signal each.
enum class FrameworkEvent : int {
  Progress = 0,
  Completed,
  DroppedFrame,
  SignalLost,
  SignalResumed,
  FormatChanged,
  MemoryAllocationError,
};
constexpr int kFrameworkEventCount = 7;

class FRAMEWORK_API ChannelBase : public ProcessorBase {
 public:
  ChannelBase();
  // Deletes the children, newest first.
  ~ChannelBase() override;

  void SetChannelIndex(std::uint64_t index) { channelIndex_ = index; }
  std::uint64_t GetChannelIndex() const { return channelIndex_; }

  // Called by the host once, after construction. Optional; the default runs CreateChannel.
  virtual void OnCreateChannel(std::uint64_t channelIndex);

  // Creates an instance of plug-in class `className` from `properties`, names it `instanceName`
  // and keeps it. Returns it, or null (logged) when the class is unknown, the factory fails or
  // the name is taken.
  virtual ProcessorBase* CreateProcessor(const std::string& className,
                                         const std::string& instanceName,
                                         PropertyBase& properties, bool managedByChannel);

  // The child algorithm named `instanceName`, or null when there is none.
  AlgorithmBase* GetAlgorithm(const std::string& instanceName) const;

  // The signal on which the host raises events of `kind`.
  EventSignal<EventBase>& GetFrameworkSignal(FrameworkEvent kind);

  // Fails when CreateChannel has not run; otherwise initialises the managed children.
  bool Init() override;
  bool Start() override;
  bool Stop() override;
  void Deinit() override;

 protected:
  // Records the channel index and marks the channel as created.
  virtual void CreateChannel(std::uint64_t channelIndex);

  // The folders searched for plug-in libraries.
  void SetPluginFolders(std::vector<std::string> folders) { pluginFolders_ = std::move(folders); }

 private:
  struct Child {
    std::string instanceName;
    std::unique_ptr<ProcessorBase> processor;
    bool managed;
  };

  template <typename Operation>
  bool ForManagedChildren(Operation operation);

  std::uint64_t channelIndex_ = 0;
  bool created_ = false;
  std::vector<std::string> pluginFolders_;
  std::vector<Child> children_;
  std::array<EventSignal<EventBase>, kFrameworkEventCount> frameworkSignals_;
};

}  // namespace Framework
