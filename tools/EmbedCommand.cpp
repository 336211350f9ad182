// quillmar embed: runs one embedding session as a host does. It loads the channel library, creates
// a channel with CreateProcessor, configures it from the configuration file and the options,
// feeds it frames from a Y4M stream or the synthetic source on a processing thread, stops it,
// writes the encodation log record, and prints what was embedded.
#include <unistd.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/json.hpp>
#include <chrono>
#include <csignal>
#include <iostream>
#include <map>
#include <thread>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "tools/ChannelLibrary.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/FrameInput.h"
#include "tools/ProgressBar.h"
#include "tools/ReportingListener.h"
#include "tools/Y4mWriter.h"

namespace Quillmar::Tools {
namespace {

// Exit statuses, by the channel's last error.
constexpr int kExitFailure = 1;
constexpr int kExitConfiguration = 3;
constexpr int kExitTimeslot = 4;
constexpr int kExitLicense = 5;

struct EmbedOptions {
  std::string config;
  std::string program;
  unsigned duration = 0;
  FrameInputOptions input;
  std::string output;
  bool realtime = false;
  bool json = false;
  bool noDetector = false;
  std::vector<std::string> metadata;
};

// A configuration or program that cannot be used, found before the channel is made.
class ConfigurationProblem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::atomic<bool> interrupted{false};

extern "C" void OnInterrupt(int) { interrupted = true; }

int StatusOf(QuillmarBasebandEmbedder::ErrorCode code) {
  switch (code) {
    case QuillmarBasebandEmbedder::ErrorConfiguration: return kExitConfiguration;
    case QuillmarBasebandEmbedder::ErrorTimeslotAllocation: return kExitTimeslot;
    case QuillmarBasebandEmbedder::ErrorLicenseInvalidated: return kExitLicense;
    default: return kExitFailure;
  }
}

std::map<std::string, std::string> ParseMetadata(const std::vector<std::string>& pairs) {
  std::map<std::string, std::string> metadata;
  for (const std::string& pair : pairs) {
    const auto equals = pair.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw std::invalid_argument("--meta takes key=value, not " + pair);
    }
    metadata[pair.substr(0, equals)] = pair.substr(equals + 1);
  }
  return metadata;
}

// The CIDs a channel of this configuration and program may use.
struct ProgramCids {
  std::vector<unsigned> inProgram;
  std::list<unsigned> inConfiguration;
};

ProgramCids CidsFromConfiguration(const std::string& configFile, const std::string& program) {
  QuillmarBasebandSDK::QuillmarBasebandConfigurationState state(configFile, "COMMON");
  if (!state.ParseConfiguration(true)) {
    throw ConfigurationProblem("configuration " + configFile + ": " + state.GetErrorText());
  }
  ProgramCids cids;
  bool found = false;
  for (const auto& entry : state.GetPrograms()) {
    for (const auto eid : entry.vwm.eids) {
      cids.inConfiguration.push_back(static_cast<unsigned>(eid));
      if (entry.name == program) cids.inProgram.push_back(static_cast<unsigned>(eid));
    }
    found = found || entry.name == program;
  }
  if (!found) throw ConfigurationProblem("program " + program + " is not in " + configFile);
  cids.inConfiguration.sort();
  cids.inConfiguration.unique();
  return cids;
}

// What the run embedded, read from the embedder before the channel goes.
struct Summary {
  unsigned cid = 0;
  SYSTEMTIME start{};
  std::uint64_t reservedSeconds = 0;
  std::uint64_t embeddedSeconds = 0;
  double averageEnergy = 0.0;
  std::uint64_t frames = 0;
};

void PrintSummary(const Summary& summary, bool json) {
  if (json) {
    boost::json::object object{{"cid", summary.cid},
                               {"start", Framework::IsoUtcText(summary.start)},
                               {"reserved_seconds", summary.reservedSeconds},
                               {"embedded_seconds", summary.embeddedSeconds},
                               {"average_energy", summary.averageEnergy},
                               {"frames", summary.frames}};
    std::cout << boost::json::serialize(object) << std::endl;
    return;
  }
  std::cerr << "embedded CID " << summary.cid << " from " << Framework::IsoUtcText(summary.start)
            << ": "
            << summary.embeddedSeconds << " s embedded of " << summary.reservedSeconds
            << " s reserved, " << summary.frames << " frames, average energy "
            << summary.averageEnergy << std::endl;
}

// The channel, created through the library's entry points and deleted through them.
class HostedChannel {
 public:
  explicit HostedChannel(const ChannelLibrary& library)
      : library_(library),
        processor_(library.CreateProcessor(Framework::PropertyBase())),
        channel_(dynamic_cast<Framework::QuillmarBasebandSDKChannel*>(processor_)) {
    if (channel_ == nullptr) throw std::runtime_error("the library made no channel");
  }
  ~HostedChannel() { library_.DeleteProcessor(processor_); }
  HostedChannel(const HostedChannel&) = delete;
  HostedChannel& operator=(const HostedChannel&) = delete;

  Framework::QuillmarBasebandSDKChannel* operator->() const { return channel_; }
  Framework::QuillmarBasebandSDKChannel& operator*() const { return *channel_; }

 private:
  const ChannelLibrary& library_;
  Framework::ProcessorBase* processor_;
  Framework::QuillmarBasebandSDKChannel* channel_;
};

// Feeds every frame of `input` to the channel, writing each to `writer` when there is one.
std::uint64_t FeedFrames(Framework::QuillmarBasebandSDKChannel& channel, FrameSource& input,
                         Y4mWriter* writer, bool realtime, ProgressBar& progress) {
  Framework::Frame frame(input.Format());
  const auto frameTime = std::chrono::duration<double>(1.0 / input.Format().GetFrameRate());
  const auto begin = std::chrono::steady_clock::now();
  std::uint64_t frames = 0;
  while (!interrupted && input.Next(frame)) {
    if (realtime) {
      std::this_thread::sleep_until(begin + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                frameTime * static_cast<double>(frames)));
    }
    if (!channel.DeliverFrame(&frame)) break;
    if (writer != nullptr) writer->Write(frame);
    progress.Update(++frames);
  }
  progress.Finish();
  return frames;
}

Summary RunSession(const EmbedOptions& options) {
  const ProgramCids cids = CidsFromConfiguration(options.config, options.program);
  auto input = OpenFrameInput(options.input);
  const Framework::VideoFormatInfo format = input->Format();
  OutputStream output(options.output);
  std::unique_ptr<Y4mWriter> writer;
  if (output.Get() != nullptr) writer = std::make_unique<Y4mWriter>(output.Get(), format);

  ChannelLibrary library;
  HostedChannel channel(library);
  ReportingListener listener(std::cerr);
  channel->OnCreateChannel(0);
  channel->SetListener(&listener);
  channel->SetConfigFile(options.config);
  channel->SetProgramName(options.program);
  channel->SetEmbeddingDuration(options.duration);
  channel->SetAllCIDsInProgram(cids.inProgram);
  channel->SetAllEmbedderCIDsInConfig(cids.inConfiguration);
  channel->SetFrameRate(format.GetFrameRate());
  channel->SetFormatInfo(format);
  channel->SetVwmDetectorOn(!options.noDetector);

  const auto fail = [&channel](const char* step) {
    SetExitStatus(StatusOf(channel->GetLastError()));
    throw std::runtime_error(std::string(step) + " failed: " + channel->GetLastErrorText());
  };
  if (!channel->InitProcessor()) fail("Init");
  if (!channel->StartProcessor()) fail("Start");

  ProgressBar progress(std::cerr, input->ExpectedFrames());
  Summary summary;
  std::exception_ptr processingFailure;
  std::thread processing([&] {
    try {
      summary.frames = FeedFrames(*channel, *input, writer.get(), options.realtime, progress);
    } catch (...) {
      processingFailure = std::current_exception();
    }
  });
  processing.join();
  if (processingFailure) {
    channel->StopProcessor();
    std::rethrow_exception(processingFailure);
  }

  // The record is written before Stop, which releases the configuration and the database; it
  // finalises the slot to the seconds embedded.
  channel->WriteEncodationLog("quillmar embed", options.input.Describe(), options.program,
                              ParseMetadata(options.metadata));
  channel->StopProcessor();
  Framework::AlgorithmBase* embedder =
      channel->GetAlgorithm(Framework::QuillmarBasebandSDKChannel::kEmbedderInstance);
  summary.cid = embedder->GetProperty<std::uint32_t>("SelectedCID");
  summary.start = embedder->GetProperty<SYSTEMTIME>("SelectedStartTime");
  summary.reservedSeconds = embedder->GetProperty<std::uint64_t>("SelectedDurationInSeconds");
  summary.embeddedSeconds = embedder->GetProperty<std::uint64_t>("EmbeddedDurationInSeconds");
  summary.averageEnergy = listener.AverageEnergy();
  channel->DeinitProcessor();
  if (listener.ErrorCount() > 0) SetExitStatus(StatusOf(channel->GetLastError()));
  return summary;
}

void AddEmbedCommand(CLI::App& app) {
  auto options = std::make_shared<EmbedOptions>();
  CLI::App* command = app.add_subcommand("embed", "Embed the watermark into a video stream");
  command->add_option("--config", options->config, "Configuration file")->required();
  command->add_option("--program", options->program, "Program whose CIDs and quality to use")
      ->required();
  command->add_option("--duration", options->duration,
                      "Seconds to reserve; 0 reserves open-ended, extending as the run goes on");
  AddFrameInputOptions(*command, options->input);
  command->add_option("-o,--output", options->output, "Write the embedded frames as Y4M (- for stdout)");
  command->add_flag("--realtime", options->realtime, "Pace frames at the frame rate, as a live source");
  command->add_option("--meta", options->metadata, "Metadata key=value for the encodation log")
      ->type_name("KEY=VALUE");
  command->add_flag("--json", options->json, "Print the summary as one JSON object on stdout");
  command->add_flag("--no-detector", options->noDetector, "Do not look for prior watermarks");
  command->callback([options] {
    std::signal(SIGINT, OnInterrupt);
    try {
      if (options->json && options->output == "-") {
        throw std::invalid_argument("--json and -o - both want standard output");
      }
      PrintSummary(RunSession(*options), options->json);
    } catch (const ConfigurationProblem& problem) {
      std::cerr << "quillmar embed: " << problem.what() << std::endl;
      SetExitStatus(kExitConfiguration);
    } catch (const std::exception& error) {
      std::cerr << "quillmar embed: " << error.what() << std::endl;
      if (ExitStatus() == 0) SetExitStatus(kExitFailure);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddEmbedCommand)

}  // namespace Quillmar::Tools
