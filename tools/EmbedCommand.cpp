// quillmar embed: runs one embedding session as a host does. Everything that can be checked is
// checked before the session reserves a slot: the options, the configuration and the program, the
// input's header and the output (its header is written first). Then the session runs, frames go
// through the channel on a processing thread, and whatever ends the run (the end of the input, a
// damaged input, an output that fails, a stop request) the session closes: the encodation record
// is written, the slot finalised, the channel released, and the summary printed.
#include <boost/json.hpp>
#include <chrono>
#include <future>
#include <iostream>
#include <map>
#include <thread>

#include "events/WatermarkTime.h"
#include "framework/platform/StopRequests.h"
#include "tools/CommandRegistry.h"
#include "tools/EmbeddingSession.h"
#include "tools/ExitStatus.h"
#include "tools/FrameInput.h"
#include "tools/JsonOutput.h"
#include "tools/Progress.h"
#include "tools/ReportingListener.h"
#include "tools/Y4mWriter.h"

namespace Quillmar::Tools {
namespace {

struct EmbedOptions {
  std::string config;
  std::string program;
  unsigned duration = 0;
  FrameInputOptions input;
  std::string output;
  bool realtime = false;
  bool json = false;
  bool verbose = false;
  bool noDetector = false;
  std::vector<std::string> metadata;
};

// A configuration or program that cannot be used, found before the session opens.
class ConfigurationProblem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What ended the frame loop.
enum class RunEnd { EndOfInput, ChannelStopped, Interrupted, InputFailed, OutputFailed };

struct RunOutcome {
  RunEnd end = RunEnd::EndOfInput;
  std::string error;  // what failed, for InputFailed and OutputFailed
};

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
    metadata[pair.substr(0, equals)] = pair.substr(equals + 1);
  }
  return metadata;
}

// Feeds every frame of `input` through the session, writing each to `writer` when there is one,
// until the input ends, a stop request arrives, or a stream or the channel fails.
RunOutcome FeedFrames(EmbeddingSession& session, FrameSource& input, Y4mWriter* writer,
                      bool realtime, Progress& progress) {
  Framework::Frame frame(input.Format());
  const auto frameTime = std::chrono::duration<double>(1.0 / input.Format().GetFrameRate());
  const auto begin = std::chrono::steady_clock::now();
  RunOutcome outcome;
  for (std::uint64_t frames = 0;; progress.Update(++frames)) {
    if (Framework::StopRequests::Count() > 0) {
      outcome.end = RunEnd::Interrupted;
      break;
    }
    if (realtime) {
      std::this_thread::sleep_until(begin +
                                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                        frameTime * static_cast<double>(frames)));
    }
    try {
      if (!input.Next(frame)) break;
    } catch (const Framework::StreamInterrupted&) {
      outcome.end = RunEnd::Interrupted;
      break;
    } catch (const std::exception& error) {
      outcome = {RunEnd::InputFailed, error.what()};
      break;
    }
    if (!session.Deliver(frame)) {
      outcome.end = RunEnd::ChannelStopped;
      break;
    }
    try {
      if (writer != nullptr) writer->Write(frame);
    } catch (const Framework::StreamInterrupted&) {
      outcome.end = RunEnd::Interrupted;
      break;
    } catch (const std::exception& error) {
      outcome = {RunEnd::OutputFailed, error.what()};
      break;
    }
  }
  progress.Finish();
  return outcome;
}

// Runs FeedFrames on a processing thread; meanwhile says on the console what a stop request does.
RunOutcome RunFrames(EmbeddingSession& session, FrameSource& input, Y4mWriter* writer,
                     const EmbedOptions& options, Console& console) {
  Progress progress(console, input.ExpectedFrames());
  std::packaged_task<RunOutcome()> task(
      [&] { return FeedFrames(session, input, writer, options.realtime, progress); });
  std::future<RunOutcome> outcome = task.get_future();
  std::thread processing(std::move(task));
  for (int told = 0;
       outcome.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready;) {
    const int requests = Framework::StopRequests::Count();
    if (requests == told) continue;
    told = requests;
    console.Line(requests == 1 ? "quillmar embed: stopping after the frame in progress; again to "
                                 "stop at once"
                               : "quillmar embed: stopping at once; the session still closes");
  }
  processing.join();
  return outcome.get();
}

// The exit status of a session that opened, by what ended it and what it marked.
int SessionStatus(const RunOutcome& outcome, const SessionSummary& summary,
                  const EmbeddingSession& session, const ReportingListener& listener) {
  switch (outcome.end) {
    case RunEnd::Interrupted:
      return kExitSignalBase + Framework::StopRequests::FirstSignal();
    case RunEnd::OutputFailed:
      return kExitOutputFailed;
    case RunEnd::InputFailed:
      return kExitInputFailed;
    case RunEnd::EndOfInput:
    case RunEnd::ChannelStopped:
      break;
  }
  if (summary.embeddedFrames == 0) return kExitNothingMarked;
  return listener.ErrorCount() > 0 ? StatusOf(session.LastError()) : kExitSuccess;
}

boost::json::value PriorWatermarkJson(const std::optional<PriorWatermark>& prior) {
  if (!prior) return nullptr;
  boost::json::object object{{"cid", nullptr},
                             {"seconds", prior->seconds},
                             {"first_time", nullptr},
                             {"last_time", nullptr}};
  if (prior->cid) {
    object["cid"] = *prior->cid;
    object["first_time"] = Framework::WatermarkTime::IsoText(prior->firstTimestamp);
    object["last_time"] = Framework::WatermarkTime::IsoText(prior->lastTimestamp);
  }
  return object;
}

void PrintSummary(const SessionSummary& summary, bool interrupted, int status,
                  const std::string& error, bool json) {
  if (json) {
    PrintJson(std::cout,
              boost::json::object{{"cid", summary.cid},
                                  {"start", Framework::IsoUtcText(summary.start)},
                                  {"reserved_seconds", summary.reservedSeconds},
                                  {"embedded_seconds", summary.embeddedSeconds},
                                  {"average_energy", summary.averageEnergy},
                                  {"frames", summary.frames},
                                  {"embedded_frames", summary.embeddedFrames},
                                  {"bypassed_frames", summary.bypassedFrames},
                                  {"prior_watermark", PriorWatermarkJson(summary.priorWatermark)},
                                  {"interrupted", interrupted},
                                  {"exit_status", status},
                                  {"error", error.empty() ? boost::json::value(nullptr)
                                                          : boost::json::value(error)}});
    return;
  }
  std::cerr << "embedded CID " << summary.cid << " from " << Framework::IsoUtcText(summary.start)
            << ": " << summary.embeddedSeconds << " s embedded of " << summary.reservedSeconds
            << " s reserved; " << summary.frames << " frames, " << summary.embeddedFrames
            << " marked, " << summary.bypassedFrames << " passed unmarked; average energy "
            << summary.averageEnergy << (interrupted ? "; interrupted" : "") << std::endl;
}

// The failure of a run that ended before a session opened: nothing was reserved.
void PrintRefusal(const std::string& error, int status, bool json) {
  if (json) {
    PrintJson(std::cout, boost::json::object{{"exit_status", status}, {"error", error}});
  }
}

int RunEmbed(const EmbedOptions& options, Console& console) {
  SessionRequest request;
  std::string problem;
  if (!ReadSessionCids(options.config, options.program, request, problem)) {
    throw ConfigurationProblem(problem);
  }
  auto input = OpenFrameInput(options.input);
  request.configFile = options.config;
  request.program = options.program;
  request.durationSeconds = options.duration;
  request.detector = !options.noDetector;
  request.format = input->Format();
  request.recordTexts[0] = "quillmar embed";
  request.recordTexts[1] = options.input.Describe();
  request.recordTexts[2] = options.program;
  request.metadata = ParseMetadata(options.metadata);

  std::unique_ptr<Framework::StreamFile> output;
  std::unique_ptr<Y4mWriter> writer;
  if (!options.output.empty()) {
    output =
        std::make_unique<Framework::StreamFile>(options.output, Framework::StreamFile::Mode::Write);
    writer = std::make_unique<Y4mWriter>(*output, input->Format(), input->Y4mParameters());
  }

  ChannelLibrary library;
  ReportingListener listener(console, options.verbose);
  EmbeddingSession session(library, listener);
  if (!session.Open(request)) {
    const int status = StatusOf(session.LastError());
    const std::string error = "the session did not open: " + session.LastErrorText();
    console.Line("quillmar embed: " + error);
    PrintSummary(session.Close(), false, status, error, options.json);
    return status;
  }
  const RunOutcome outcome = RunFrames(session, *input, writer.get(), options, console);
  const SessionSummary& summary = session.Close();
  const int status = SessionStatus(outcome, summary, session, listener);
  std::string error = outcome.error;
  if (error.empty() && status == kExitNothingMarked) {
    error = summary.frames == 0 ? "the input held no frames"
                                : "no frame was marked: a prior watermark was present throughout";
  }
  if (!error.empty()) console.Line("quillmar embed: " + error);
  PrintSummary(summary, outcome.end == RunEnd::Interrupted, status, error, options.json);
  return status;
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
  command->add_option("-o,--output", options->output,
                      "Write the embedded frames as Y4M (- for standard output)");
  command->add_flag("--realtime", options->realtime, "Pace frames at the frame rate, as a live source");
  command->add_option("--meta", options->metadata, "Metadata key=value for the encodation log")
      ->type_name("KEY=VALUE")
      ->check(CLI::Validator(
          [](const std::string& pair) {
            const auto equals = pair.find('=');
            return equals == std::string::npos || equals == 0
                       ? "--meta takes KEY=VALUE, not " + pair
                       : std::string();
          },
          "KEY=VALUE"));
  command->add_flag("--json", options->json,
                    "Print the summary as one JSON object on standard output");
  command->add_flag("-v,--verbose", options->verbose, "Also print the embedder's energy reports");
  command->add_flag("--no-detector", options->noDetector, "Do not look for prior watermarks");
  command->callback([options] {
    if (options->json && options->output == "-") {
      throw CLI::ValidationError("--json and -o - both want standard output");
    }
    Framework::StopRequests::Install();
    Console& console = Console::StandardError();
    try {
      SetExitStatus(RunEmbed(*options, console));
    } catch (const ConfigurationProblem& problem) {
      console.Line("quillmar embed: " + std::string(problem.what()));
      PrintRefusal(problem.what(), kExitConfiguration, options->json);
      SetExitStatus(kExitConfiguration);
    } catch (const Framework::StreamInterrupted&) {
      const int status = kExitSignalBase + Framework::StopRequests::FirstSignal();
      console.Line("quillmar embed: interrupted before the session opened; nothing was reserved");
      PrintRefusal("interrupted", status, options->json);
      SetExitStatus(status);
    } catch (const std::exception& error) {
      console.Line("quillmar embed: " + std::string(error.what()));
      PrintRefusal(error.what(), kExitFailure, options->json);
      SetExitStatus(kExitFailure);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddEmbedCommand)

}  // namespace Quillmar::Tools
