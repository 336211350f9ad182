#include "ChannelBase.h"

#include <algorithm>

#include "Logger.h"
#include "PluginRegistry.h"

namespace Framework {

AlgorithmBase::~AlgorithmBase() = default;

ChannelBase::ChannelBase() = default;

ChannelBase::~ChannelBase() {
  while (!children_.empty()) children_.pop_back();
}

void ChannelBase::OnCreateChannel(std::uint64_t channelIndex) { CreateChannel(channelIndex); }

void ChannelBase::CreateChannel(std::uint64_t channelIndex) {
  SetChannelIndex(channelIndex);
  created_ = true;
}

ProcessorBase* ChannelBase::CreateProcessor(const std::string& className,
                                            const std::string& instanceName,
                                            PropertyBase& properties, bool managedByChannel) {
  const bool taken = std::any_of(children_.begin(), children_.end(), [&](const Child& child) {
    return child.instanceName == instanceName;
  });
  if (taken) {
    Logger::Error("ChannelBase::CreateProcessor: instance name " + instanceName +
                  " is already in use");
    return nullptr;
  }
  std::unique_ptr<ProcessorBase> processor(
      PluginRegistry::Instance().Create(className, properties, pluginFolders_));
  if (processor == nullptr) return nullptr;
  processor->SetName(instanceName);
  children_.push_back({instanceName, std::move(processor), managedByChannel});
  return children_.back().processor.get();
}

AlgorithmBase* ChannelBase::GetAlgorithm(const std::string& instanceName) const {
  for (const Child& child : children_) {
    if (child.instanceName == instanceName) {
      return dynamic_cast<AlgorithmBase*>(child.processor.get());
    }
  }
  return nullptr;
}

EventSignal<EventBase>& ChannelBase::GetFrameworkSignal(FrameworkEvent kind) {
  return frameworkSignals_.at(static_cast<std::size_t>(kind));
}

template <typename Operation>
bool ChannelBase::ForManagedChildren(Operation operation) {
  bool allSucceeded = true;
  for (Child& child : children_) {
    if (child.managed && !operation(*child.processor)) allSucceeded = false;
  }
  return allSucceeded;
}

bool ChannelBase::Init() {
  if (!created_) {
    Logger::Error("ChannelBase::Init: the channel was not created");
    return false;
  }
  return ForManagedChildren([](ProcessorBase& child) { return child.InitProcessor(); });
}

bool ChannelBase::Start() {
  return ForManagedChildren([](ProcessorBase& child) { return child.StartProcessor(); });
}

bool ChannelBase::Stop() {
  return ForManagedChildren([](ProcessorBase& child) { return child.StopProcessor(); });
}

void ChannelBase::Deinit() {
  ForManagedChildren([](ProcessorBase& child) { return child.DeinitProcessor(); });
}

}  // namespace Framework
