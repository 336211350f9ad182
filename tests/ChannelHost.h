// The host side of the channel's tests and benchmark: the channel library loaded with dlopen and
// driven through its entry points, a listener that records every report, and signed
// configuration files. One thread drives a TestChannel at a time unless a test hands frames to
// another on purpose; the listener may be called from any thread.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/Frame.h"
#include "tools/ChannelLibrary.h"

namespace QuillmarTesting {

// A host listener that keeps the text of every report, in order. An energy report reads
// "<energy> embedding" (or "bypassing"), a detection "found <payload> at <timestamp> Q <quality>".
class RecordingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  enum class Kind { EmbeddingReport, Error, Warning, Info, Detection };

  void OnEmbeddingReport(float energy, bool embedding) override {
    Add(Kind::EmbeddingReport, Number(energy) + (embedding ? " embedding" : " bypassing"));
  }
  void OnError(const char* message) override { Add(Kind::Error, message); }
  void OnWarning(const char* message) override { Add(Kind::Warning, message); }
  void OnInfo(const char* message) override { Add(Kind::Info, message); }
  void OnDetection(bool detected, const char* payload, const char* timestamp,
                   double quality) override {
    Add(Kind::Detection, std::string(detected ? "found " : "lost ") + payload + " at " + timestamp +
                             " Q " + Number(quality));
  }

  // The texts of the reports of `kind`, in order.
  std::vector<std::string> Texts(Kind kind) const;

 private:
  static std::string Number(double value);
  void Add(Kind kind, std::string text);

  mutable std::mutex mutex_;
  std::vector<std::pair<Kind, std::string>> reports_;  // Guarded by mutex_
};

// A program of a test configuration; without metadata fields it gets a content type, which
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
};

// Writes `configuration`, signed, to `path` and returns `path`.
std::string WriteConfiguration(const std::string& path, const TestConfiguration& configuration);

// A small picture at `framesPerSecond`, so that frames cost little.
Framework::VideoFormatInfo SmallFormat(double framesPerSecond = 25.0);

// The channel library, loaded once for the process and never unloaded, as a host keeps it.
const Quillmar::Tools::ChannelLibrary& Library();

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
  ~TestChannel() { Library().DeleteProcessor(channel_); }
  TestChannel(const TestChannel&) = delete;
  TestChannel& operator=(const TestChannel&) = delete;

  Framework::QuillmarBasebandSDKChannel* operator->() const { return channel_; }

  // Sets what a host sets before Init: configuration file, program, requested seconds, the
  // program's CIDs and every CID of the configuration, frame rate, SmallFormat, listener.
  void Configure(const std::string& configFile, const TestConfiguration& configuration,
                 const std::string& program, std::uint32_t durationSeconds,
                 const Framework::QuillmarBasebandEmbedderListener* listener,
                 double framesPerSecond = 25.0);
  // Gives the channel and the frames it is handed `format`.
  void SetFormat(const Framework::VideoFormatInfo& format);

  // The frame FeedOne hands over again and again; the channel marks it in place.
  Framework::Frame& CurrentFrame() { return frame_; }
  // One frame through the host's delivery; false when the channel did not take it.
  bool FeedOne() { return channel_->DeliverFrame(&frame_); }
  // Up to `count` frames; the number the channel took.
  int Feed(int count);

  // The children, which must exist, and what the embedder was handed at Start.
  Framework::LumensealBasebandEmbedderPlugin& Embedder() const;
  Framework::AlgorithmBase& Detector() const;
  GrantedSlot Slot() const;

 private:
  Framework::QuillmarBasebandSDKChannel* channel_;
  Framework::Frame frame_;
};

// Seconds from `from` to `to`, with milliseconds.
double SecondsBetween(const SYSTEMTIME& from, const SYSTEMTIME& to);

}  // namespace QuillmarTesting
