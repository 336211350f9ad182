#include "tests/ChannelHost.h"

#include <algorithm>
#include <boost/json.hpp>
#include <fstream>
#include <stdexcept>

#include "config/ConfigurationSigner.h"
#include "database/TimeTicks.h"
#include "framework/Logger.h"
#include "tools/ChannelLibrary.h"

namespace QuillmarTesting {
namespace {

namespace json = boost::json;

using Framework::QuillmarBasebandSDKChannel;

// Loaded once for the process and never unloaded, as a host keeps its plug-in libraries.
const Quillmar::Tools::ChannelLibrary& Library() {
  static const auto* library = new Quillmar::Tools::ChannelLibrary();
  return *library;
}

json::array Numbers(const std::vector<unsigned>& values) {
  return json::array(values.begin(), values.end());
}

json::object ProgramObject(const TestProgram& program) {
  json::object entry;
  entry["Name"] = program.name;
  if (program.metadataFields.empty()) {
    entry["ContentType"] = "Entertainment";
  } else {
    json::array fields;
    for (const auto& field : program.metadataFields) {
      fields.push_back(json::object{{"DisplayName", field.first}, {"FieldName", field.second}});
    }
    entry["MetadataFields"] = std::move(fields);
  }
  entry["VWM"] = json::object{
      {"EIDS", Numbers(program.eids)}, {"GlobalDepth", program.globalDepth}, {"MaxLocalDepth", 4}};
  return entry;
}

class HookSink : public Framework::LogSink {
 public:
  explicit HookSink(ScopedLogHook::Hook hook) : hook_(std::move(hook)) {}
  void Write(const Framework::LogRecord& record) override { hook_(record.level, record.text); }
  void WriteLine(const std::string& text) override { hook_(Framework::EventLevel::Info, text); }
  std::string Target() const override { return "test hook"; }

 private:
  ScopedLogHook::Hook hook_;
};

}  // namespace

void RecordingListener::Add(ListenerReport report) {
  std::lock_guard<std::mutex> lock(mutex_);
  reports_.push_back(std::move(report));
}

void RecordingListener::OnEmbeddingReport(float averageEnergy, bool embedding) {
  Add({ListenerReport::Kind::EmbeddingReport, "", "", averageEnergy, embedding});
}
void RecordingListener::OnError(const char* message) {
  Add({ListenerReport::Kind::Error, message, "", 0.0, false});
}
void RecordingListener::OnWarning(const char* message) {
  Add({ListenerReport::Kind::Warning, message, "", 0.0, false});
}
void RecordingListener::OnInfo(const char* message) {
  Add({ListenerReport::Kind::Info, message, "", 0.0, false});
}
void RecordingListener::OnDetection(bool detected, const char* payload, const char* timestamp,
                                    double quality) {
  Add({ListenerReport::Kind::Detection, payload, timestamp, quality, detected});
}

std::vector<ListenerReport> RecordingListener::Reports() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reports_;
}

std::vector<ListenerReport> RecordingListener::Of(ListenerReport::Kind kind) const {
  std::vector<ListenerReport> selected;
  for (const ListenerReport& report : Reports()) {
    if (report.kind == kind) selected.push_back(report);
  }
  return selected;
}

std::vector<std::string> RecordingListener::Texts(ListenerReport::Kind kind) const {
  std::vector<std::string> texts;
  for (const ListenerReport& report : Of(kind)) texts.push_back(report.text);
  return texts;
}

std::vector<unsigned> TestConfiguration::ProgramCids(const std::string& program) const {
  for (const TestProgram& entry : programs) {
    if (entry.name == program) return entry.eids;
  }
  return {};
}

std::list<unsigned> TestConfiguration::AllCids() const {
  std::list<unsigned> cids;
  for (const TestProgram& entry : programs)
    cids.insert(cids.end(), entry.eids.begin(), entry.eids.end());
  cids.sort();
  cids.unique();
  return cids;
}

std::string WriteConfiguration(const std::string& path, const TestConfiguration& configuration) {
  json::object processor;
  processor["Version"] = "0.3";
  processor["Facility"] = "Test Playout";
  if (!configuration.sharedDatabase.empty())
    processor["SharedDatabase"] = configuration.sharedDatabase;
  processor["Detector"] = json::object{
      {"VWM", json::object{{"DisplayAllWatermarks", configuration.displayAllWatermarks},
                           {"DisplayEIDS", Numbers(configuration.displayEids)}}}};
  json::array programs;
  for (const TestProgram& program : configuration.programs)
    programs.push_back(ProgramObject(program));
  processor["ContentProcessingParameters"] = std::move(programs);
  const std::string text =
      json::serialize(json::object{{"ContentProcessor", std::move(processor)}});

  std::string signedText;
  std::string error;
  if (!QuillmarBasebandSDK::SignConfiguration(text, path, path, true, signedText, error)) {
    throw std::runtime_error("cannot sign the test configuration: " + error);
  }
  std::ofstream(path, std::ios::binary) << signedText;
  return path;
}

Framework::VideoFormatInfo SmallFormat(double framesPerSecond) {
  return Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, 64, 36, framesPerSecond);
}

CreateProcessorEntry CreateProcessorFunction() {
  return reinterpret_cast<CreateProcessorEntry>(Library().EntryPoint("CreateProcessor"));
}

DeleteProcessorEntry DeleteProcessorFunction() {
  return reinterpret_cast<DeleteProcessorEntry>(Library().EntryPoint("DeleteProcessor"));
}

std::string ProcessorVersion() { return Library().Version(); }

TestChannel::TestChannel()
    : processor_(CreateProcessorFunction()(Framework::PropertyBase())),
      channel_(dynamic_cast<QuillmarBasebandSDKChannel*>(processor_)),
      frame_(SmallFormat()) {
  if (channel_ == nullptr) throw std::runtime_error("CreateProcessor made no channel");
  channel_->OnCreateChannel(0);
}

TestChannel::~TestChannel() { DeleteProcessorFunction()(processor_); }

void TestChannel::Configure(const std::string& configFile, const TestConfiguration& configuration,
                            const std::string& program, std::uint32_t durationSeconds,
                            const Framework::QuillmarBasebandEmbedderListener* listener,
                            double framesPerSecond) {
  channel_->SetConfigFile(configFile);
  channel_->SetProgramName(program);
  channel_->SetEmbeddingDuration(durationSeconds);
  channel_->SetAllCIDsInProgram(configuration.ProgramCids(program));
  channel_->SetAllEmbedderCIDsInConfig(configuration.AllCids());
  channel_->SetFrameRate(framesPerSecond);
  SetFormat(SmallFormat(framesPerSecond));
  channel_->SetListener(listener);
}

void TestChannel::SetFormat(const Framework::VideoFormatInfo& format) {
  channel_->SetFormatInfo(format);
  frame_ = Framework::Frame(format);
}

int TestChannel::Feed(int count) {
  int taken = 0;
  while (taken < count && FeedOne()) ++taken;
  return taken;
}

Framework::LumensealBasebandEmbedderPlugin& TestChannel::Embedder() const {
  auto* embedder = dynamic_cast<Framework::LumensealBasebandEmbedderPlugin*>(
      channel_->GetAlgorithm(Framework::kEmbedderInstance));
  if (embedder == nullptr) throw std::runtime_error("the channel has no embedder");
  return *embedder;
}

Framework::AlgorithmBase& TestChannel::Detector() const {
  Framework::AlgorithmBase* detector = channel_->GetAlgorithm(Framework::kDetectorInstance);
  if (detector == nullptr) throw std::runtime_error("the channel has no detector");
  return *detector;
}

GrantedSlot TestChannel::Slot() const {
  const auto& embedder = Embedder();
  return {embedder.GetSelectedCID(), embedder.GetSelectedStartTime(),
          embedder.GetSelectedDurationInSeconds()};
}

ScopedLogHook::ScopedLogHook(Hook hook) : sink_(std::make_shared<HookSink>(std::move(hook))) {
  Framework::Logger::AddSink(sink_);
}

ScopedLogHook::~ScopedLogHook() { Framework::Logger::RemoveSink(sink_); }

double SecondsBetween(const SYSTEMTIME& from, const SYSTEMTIME& to) {
  using QuillmarBasebandSDK::TimeTicks;
  const auto ticks =
      static_cast<std::int64_t>(TimeTicks::FromSystemTime(to) - TimeTicks::FromSystemTime(from));
  return static_cast<double>(ticks) / static_cast<double>(TimeTicks::kTicksPerSecond);
}

}  // namespace QuillmarTesting
