#include "tests/ChannelHost.h"

#include <boost/json.hpp>
#include <fstream>
#include <list>
#include <stdexcept>

#include "config/ConfigurationSigner.h"

namespace QuillmarTesting {
namespace {

namespace json = boost::json;
using Framework::QuillmarBasebandSDKChannel;

json::array Numbers(const std::vector<unsigned>& values) {
  return json::array(values.begin(), values.end());
}

json::object ProgramObject(const TestProgram& program) {
  json::object entry{{"Name", program.name}};
  if (program.metadataFields.empty()) entry["ContentType"] = "Entertainment";
  json::array fields;
  for (const auto& field : program.metadataFields) {
    fields.push_back(json::object{{"DisplayName", field.first}, {"FieldName", field.second}});
  }
  if (!fields.empty()) entry["MetadataFields"] = std::move(fields);
  entry["VWM"] = json::object{
      {"EIDS", Numbers(program.eids)}, {"GlobalDepth", program.globalDepth}, {"MaxLocalDepth", 4}};
  return entry;
}

}  // namespace

std::string WriteConfiguration(const std::string& path, const TestConfiguration& configuration) {
  json::object processor{{"Version", "0.3"}, {"Facility", "Test Playout"}};
  if (!configuration.sharedDatabase.empty()) {
    processor["SharedDatabase"] = configuration.sharedDatabase;
  }
  processor["Detector"] = json::object{
      {"VWM", json::object{{"DisplayAllWatermarks", configuration.displayAllWatermarks},
                           {"DisplayEIDS", Numbers(configuration.displayEids)}}}};
  json::array& programs = processor["ContentProcessingParameters"].emplace_array();
  for (const TestProgram& program : configuration.programs) {
    programs.push_back(ProgramObject(program));
  }
  const std::string text = json::serialize(json::object{{"ContentProcessor", processor}});
  std::string signedText;
  std::string error;
  if (!QuillmarBasebandSDK::SignConfiguration(text, path, path, true, signedText, error)) {
    throw std::runtime_error("cannot sign the test configuration: " + error);
  }
  std::ofstream(path, std::ios::binary) << signedText;
  return path;
}

const Quillmar::Tools::ChannelLibrary& Library() {
  static const auto* library = new Quillmar::Tools::ChannelLibrary();
  return *library;
}

TestChannel::TestChannel()
    : channel_(dynamic_cast<QuillmarBasebandSDKChannel*>(
          Library().CreateProcessor(Framework::PropertyBase()))),
      frame_(SmallFormat()) {
  if (channel_ == nullptr) throw std::runtime_error("CreateProcessor made no channel");
  channel_->OnCreateChannel(0);
}

void TestChannel::Configure(const std::string& configFile, const TestConfiguration& configuration,
                            const std::string& program, std::uint32_t durationSeconds,
                            const Framework::QuillmarBasebandEmbedderListener* listener,
                            double framesPerSecond) {
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

}  // namespace QuillmarTesting
