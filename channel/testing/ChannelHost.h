// The host side of the channel's tests and benchmark: the channel library loaded with dlopen and
// driven through its entry points, a listener that records every report, and signed
// configuration files. One thread drives a TestChannel at a time unless a test hands frames to
// another on purpose; the listener may be called from any thread.
#pragma once

#include <array>
#include <boost/json.hpp>
#include <cstdint>
#include <fstream>
#include <list>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/ConfigurationSigner.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/Frame.h"
#include "tools/ChannelLibrary.h"

namespace QuillmarTesting {

// A host listener that keeps the text of every report by kind, in order. An energy report reads
// "<energy> embedding" (or "bypassing"), a detection "found <payload> at <timestamp> Q <quality>".
class RecordingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  enum Kind { kEnergy, kError, kWarning, kInfo, kDetection, kKinds };

  void OnEmbeddingReport(float energy, bool embedding) override {
    Add(kEnergy, Number(energy) + (embedding ? " embedding" : " bypassing"));
  }
  void OnError(const char* message) override { Add(kError, message); }
  void OnWarning(const char* message) override { Add(kWarning, message); }
  void OnInfo(const char* message) override { Add(kInfo, message); }
  void OnDetection(bool detected, const char* payload, const char* timestamp,
                   double quality) override {
    Add(kDetection, std::string(detected ? "found " : "lost ") + payload + " at " + timestamp +
                        " Q " + Number(quality));
  }

  std::vector<std::string> Texts(Kind kind) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return texts_[kind];
  }

 private:
  static std::string Number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
  }
  void Add(Kind kind, std::string text) {
    std::lock_guard<std::mutex> lock(mutex_);
    texts_[kind].push_back(std::move(text));
  }

  mutable std::mutex mutex_;
  std::array<std::vector<std::string>, kKinds> texts_;  // Guarded by mutex_
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
inline std::string WriteConfiguration(const std::string& path, const TestConfiguration& config) {
  namespace json = boost::json;
  json::object processor{{"Version", "0.3"}, {"Facility", "Test Playout"}};
  if (!config.sharedDatabase.empty()) processor["SharedDatabase"] = config.sharedDatabase;
  processor["Detector"] =
      json::object{{"VWM", json::object{{"DisplayAllWatermarks", config.displayAllWatermarks},
                                        {"DisplayEIDS", json::value_from(config.displayEids)}}}};
  json::array& programs = processor["ContentProcessingParameters"].emplace_array();
  for (const TestProgram& program : config.programs) {
    json::object& entry = programs.emplace_back(json::object{{"Name", program.name}}).as_object();
    if (program.metadataFields.empty()) entry["ContentType"] = "Entertainment";
    for (const auto& [display, field] : program.metadataFields) {
      json::value& fields = entry["MetadataFields"];
      if (!fields.is_array()) fields.emplace_array();
      fields.as_array().push_back(json::object{{"DisplayName", display}, {"FieldName", field}});
    }
    entry["VWM"] = json::object{{"EIDS", json::value_from(program.eids)},
                                {"GlobalDepth", program.globalDepth},
                                {"MaxLocalDepth", 4}};
  }
  std::string signedText, error;
  if (!QuillmarBasebandSDK::SignConfiguration(
          json::serialize(json::object{{"ContentProcessor", processor}}), path, path, true,
          signedText, error)) {
    throw std::runtime_error("cannot sign the test configuration: " + error);
  }
  std::ofstream(path, std::ios::binary) << signedText;
  return path;
}

// A small picture at `framesPerSecond`, so that frames cost little.
inline Framework::VideoFormatInfo SmallFormat(double framesPerSecond = 25.0) {
  return Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, 64, 36, framesPerSecond);
}

// The channel library, loaded once for the process and never unloaded, as a host keeps it.
inline const Quillmar::Tools::ChannelLibrary& Library() {
  static const auto* library = new Quillmar::Tools::ChannelLibrary();
  return *library;
}

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
  TestChannel()
      : channel_(dynamic_cast<Framework::QuillmarBasebandSDKChannel*>(
            Library().CreateProcessor(Framework::PropertyBase()))),
        frame_(SmallFormat()) {
    if (channel_ == nullptr) throw std::runtime_error("CreateProcessor made no channel");
    channel_->OnCreateChannel(0);
  }
  ~TestChannel() { Library().DeleteProcessor(channel_); }
  TestChannel(const TestChannel&) = delete;
  TestChannel& operator=(const TestChannel&) = delete;

  Framework::QuillmarBasebandSDKChannel* operator->() const { return channel_; }

  // Sets what a host sets before Init: configuration file, program, requested seconds, the
  // program's CIDs and every CID of the configuration, frame rate, SmallFormat, listener.
  void Configure(const std::string& configFile, const TestConfiguration& configuration,
                 const std::string& program, std::uint32_t durationSeconds,
                 const Framework::QuillmarBasebandEmbedderListener* listener,
                 double framesPerSecond = 25.0) {
    channel_->SetConfigFile(configFile);
    channel_->SetProgramName(program);
    channel_->SetEmbeddingDuration(durationSeconds);
    std::list<unsigned> all;
    for (const TestProgram& entry : configuration.programs) {
      if (entry.name == program) channel_->SetAllCIDsInProgram(entry.eids);
      all.insert(all.end(), entry.eids.begin(), entry.eids.end());
    }
    channel_->SetAllEmbedderCIDsInConfig(all);
    channel_->SetFrameRate(framesPerSecond);
    SetFormat(SmallFormat(framesPerSecond));
    channel_->SetListener(listener);
  }
  // Gives the channel and the frames it is handed `format`.
  void SetFormat(const Framework::VideoFormatInfo& format) {
    channel_->SetFormatInfo(format);
    frame_ = Framework::Frame(format);
  }

  // The frame FeedOne hands over again and again; the channel marks it in place.
  Framework::Frame& CurrentFrame() { return frame_; }
  // One frame through the host's delivery; false when the channel did not take it.
  bool FeedOne() { return channel_->DeliverFrame(&frame_); }
  // Up to `count` frames; the number the channel took.
  int Feed(int count) {
    int taken = 0;
    while (taken < count && FeedOne()) ++taken;
    return taken;
  }

  // The children, which must exist, and what the embedder was handed at Start.
  Framework::LumensealBasebandEmbedderPlugin& Embedder() const {
    return dynamic_cast<Framework::LumensealBasebandEmbedderPlugin&>(
        *channel_->GetAlgorithm(Framework::kEmbedderInstance));
  }
  Framework::AlgorithmBase& Detector() const {
    return *channel_->GetAlgorithm(Framework::kDetectorInstance);
  }
  GrantedSlot Slot() const {
    return {Embedder().GetSelectedCID(), Embedder().GetSelectedStartTime(),
            Embedder().GetSelectedDurationInSeconds()};
  }

 private:
  Framework::QuillmarBasebandSDKChannel* channel_;
  Framework::Frame frame_;
};

}  // namespace QuillmarTesting
