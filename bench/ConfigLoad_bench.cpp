// Loading a large configuration: the product's reader (parse into the ordered tree, checksum,
// validate every program) against a bare Boost.JSON parse of the same file. Both read the file.
#include <benchmark/benchmark.h>

#include <boost/json/parse.hpp>
#include <filesystem>
#include <fstream>
#include <string>

#include "config/ConfigurationReader.h"
#include "config/ConfigurationSigner.h"

namespace {

using QuillmarBasebandSDK::ConfigurationReader;

constexpr int kPrograms = 1000;
constexpr const char* kContentTypes[] = {"Entertainment", "news", "direct_response"};

std::string GeneratedConfiguration() {
  std::string text = R"({"ContentProcessor": {"Version": "0.3", "Facility": "Bench",
  "SharedDatabase": "C:\\ProgramData\\Quillmar\\timeslots.db",
  "Detector": {"VWM": {"DisplayAllWatermarks": false, "DisplayEIDS": [1, 2, 3]}},
  "ContentProcessingParameters": [)";
  for (int i = 0; i < kPrograms; ++i) {
    const std::string eid = std::to_string(10000 + 4 * i);
    text += i == 0 ? "\n" : ",\n";
    text += R"(    {"Name": "Program )" + std::to_string(i) + R"(", )";
    if (i % 4 == 3) {
      text += R"("MetadataFields": [{"DisplayName": "reel", "FieldName": "reel_number"},
        {"DisplayName": "title", "FieldName": "film_title"}], )";
    } else {
      text += R"("ContentType": ")" + std::string(kContentTypes[i % 3]) + R"(", )";
    }
    text += R"("VWM": {"EIDS": [)" + eid + ", " + eid + "1, " + eid + R"(2], "GlobalDepth": )" +
            std::to_string(2 + i % 3) + R"(.5, "MaxLocalDepth": 4}})";
  }
  text += "\n  ]}}\n";
  std::string signedText;
  std::string error;
  QuillmarBasebandSDK::SignConfiguration(text, "bench.json", "bench.json", false, signedText,
                                         error);
  return signedText;
}

const std::string& ConfigurationFile() {
  static const std::string path = [] {
    const std::string file =
        (std::filesystem::temp_directory_path() / "quillmar-config-bench.json").string();
    std::ofstream(file, std::ios::binary) << GeneratedConfiguration();
    return file;
  }();
  return path;
}

void LoadValidateChecksum(benchmark::State& state) {
  ConfigurationReader reader(ConfigurationFile());
  for (auto _ : state) {
    if (!reader.Load(true)) state.SkipWithError(reader.ErrorText().c_str());
    benchmark::DoNotOptimize(reader.Settings().programs.data());
  }
  state.counters["programs"] = static_cast<double>(reader.Settings().programs.size());
}

void BareBoostJsonParse(benchmark::State& state) {
  for (auto _ : state) {
    std::string bytes;
    ConfigurationReader::ReadFile(ConfigurationFile(), bytes);
    benchmark::DoNotOptimize(boost::json::parse(bytes));
  }
}

BENCHMARK(LoadValidateChecksum)->Unit(benchmark::kMicrosecond);
BENCHMARK(BareBoostJsonParse)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
