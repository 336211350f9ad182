// A host of one channel for tests and benchmarks, playing the channel the way a host plays it:
// the channel library loaded with dlopen and looked up by its entry points, a listener that
// records every report, signed configuration files, and a hook on the log lines.
//
// One TestChannel is driven by one thread at a time, except where a test hands frames to another
// thread on purpose; the listener and the log hook may be called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "channel/QuillmarBasebandEmbedderListener.h"
#include "channel/QuillmarBasebandSDKChannel.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/Frame.h"
#include "framework/LogSink.h"
#include "framework/platform/SystemTime.h"

namespace QuillmarTesting {

// One call the channel made on its listener.
struct ListenerReport {
  enum class Kind { EmbeddingReport, Error, Warning, Info, Detection };
  Kind kind;
  std::string text;       // the message; the payload text of a detection
  std::string timestamp;  // the time-stamp text of a detection
  double value = 0.0;     // the energy of a report, the quality of a detection
  bool flag = false;      // "embedding" of a report, "detected" of a detection
};

// A host listener that keeps every report, in the order they came.
class RecordingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  void OnEmbeddingReport(float averageEnergy, bool embedding) override;
  void OnError(const char* message) override;
  void OnWarning(const char* message) override;
  void OnInfo(const char* message) override;
  void OnDetection(bool detected, const char* payload, const char* timestamp,
                   double quality) override;

  std::vector<ListenerReport> Reports() const;
  // The texts of the reports of `kind`, in order.
  std::vector<std::string> Texts(ListenerReport::Kind kind) const;
  // The reports of `kind`, in order.
  std::vector<ListenerReport> Of(ListenerReport::Kind kind) const;

 private:
  void Add(ListenerReport report);

  mutable std::mutex mutex_;
  std::vector<ListenerReport> reports_;  // Guarded by mutex_
};

// A program of a test configuration. Without metadata fields it gets a content type, which
// brings the built-in metadata table.
struct TestProgram {
  std::string name;
  std::vector<unsigned> eids;
  std::vector<std::pair<std::string, std::string>> metadataFields;  // display name, field name
  double globalDepth = 3.5;
};

struct TestConfiguration {
  std::vector<TestProgram> programs = {{"Demo", {101, 102, 103}, {}}};
  std::string sharedDatabase;  // empty: the configuration names no shared database
  bool displayAllWatermarks = false;
  std::vector<unsigned> displayEids;

  // The EIDs of the program named `program`, and of every program.
  std::vector<unsigned> ProgramCids(const std::string& program) const;
  std::list<unsigned> AllCids() const;
};

// Writes `configuration`, signed, to `path` and returns `path`.
std::string WriteConfiguration(const std::string& path, const TestConfiguration& configuration);

// A small picture at `framesPerSecond`, so that frames cost little.
Framework::VideoFormatInfo SmallFormat(double framesPerSecond = 25.0);

// What the embedder was handed at Start: CID, slot start and slot length.
struct GrantedSlot {
  unsigned cid = 0;
  SYSTEMTIME start{};
  std::uint64_t seconds = 0;
};

// A channel made by the library's CreateProcessor, created with OnCreateChannel(0), and
// destroyed by its DeleteProcessor.
class TestChannel {
 public:
  TestChannel();
  ~TestChannel();
  TestChannel(const TestChannel&) = delete;
  TestChannel& operator=(const TestChannel&) = delete;

  Framework::QuillmarBasebandSDKChannel* operator->() const { return channel_; }
  Framework::QuillmarBasebandSDKChannel& operator*() const { return *channel_; }

  // Sets what a host sets before Init: configuration file, program, requested seconds, the
  // program's and the configuration's CIDs, frame rate and format (SmallFormat), listener.
  void Configure(const std::string& configFile, const TestConfiguration& configuration,
                 const std::string& program, std::uint32_t durationSeconds,
                 const Framework::QuillmarBasebandEmbedderListener* listener,
                 double framesPerSecond = 25.0);

  // Gives the channel and the frames it is handed `format` (Configure gives SmallFormat).
  void SetFormat(const Framework::VideoFormatInfo& format);

  // Hands up to `count` frames to the channel as the host does; the number it took.
  int Feed(int count);
  // One frame through the host's delivery; false when the channel did not take it.
  bool FeedOne() { return channel_->DeliverFrame(&frame_); }

  Framework::LumensealBasebandEmbedderPlugin& Embedder() const;
  Framework::AlgorithmBase& Detector() const;
  GrantedSlot Slot() const;

 private:
  Framework::ProcessorBase* processor_;
  Framework::QuillmarBasebandSDKChannel* channel_;
  Framework::Frame frame_;
};

// The library's entry points, looked up by name as a host looks them up.
using CreateProcessorEntry = Framework::ProcessorBase* (*)(const Framework::PropertyBase&);
using DeleteProcessorEntry = void (*)(Framework::ProcessorBase*);
CreateProcessorEntry CreateProcessorFunction();
DeleteProcessorEntry DeleteProcessorFunction();
// What the library's GetProcessorVersion returns.
std::string ProcessorVersion();

// Calls `hook` with the level and text of every log line while it lives. The hook runs under the
// Logger's lock, on the thread that logs: it must not log.
class ScopedLogHook {
 public:
  using Hook = std::function<void(Framework::EventLevel, const std::string&)>;
  explicit ScopedLogHook(Hook hook);
  ~ScopedLogHook();
  ScopedLogHook(const ScopedLogHook&) = delete;
  ScopedLogHook& operator=(const ScopedLogHook&) = delete;

 private:
  std::shared_ptr<Framework::LogSink> sink_;
};

// Seconds from `from` to `to`, with milliseconds.
double SecondsBetween(const SYSTEMTIME& from, const SYSTEMTIME& to);

}  // namespace QuillmarTesting
