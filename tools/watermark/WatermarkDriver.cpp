// watermark_driver: runs the watermark on a Y4M stream, for scripts/watermark-quality.
//   watermark_driver embed --seed S --cid C --slot-start T [--depth D] [--max-local M] < in > out
//     marks every frame of a Y4M stream and writes it out as Y4M; prints the mean energy to
//     stderr.
//   watermark_driver detect --seed S < in
//     prints one line per confirmed second ("second cid timestamp quality media_time reported_at",
//     the last being the media time of the frame that completed it), one per presence change
//     ("presence state media_time") and a closing line with the frame count, the highest sync
//     score seen (what presence is judged by, from the first frame on) and the lowest once a whole
//     second is in, and the score that raises presence ("summary frames max_sync min_sync
//     presence_on").
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <limits>

#include "plugins/watermark/WatermarkDetector.h"
#include "plugins/watermark/WatermarkEmbedder.h"
#include "tools/Y4mReader.h"
#include "tools/Y4mWriter.h"

namespace {

int Embed(std::uint64_t seed, const Lumenseal::EmbedRequest& base,
          const Lumenseal::EmbedderStrength& strength) {
  Framework::StreamFile in("-", Framework::StreamFile::Mode::Read);
  Framework::StreamFile out("-", Framework::StreamFile::Mode::Write);
  Quillmar::Tools::Y4mReader input(in);
  Quillmar::Tools::Y4mWriter output(out, input.Format(), input.Y4mParameters());
  Framework::Frame frame(input.Format());
  Lumenseal::WatermarkEmbedder embedder(seed, strength);
  Lumenseal::EmbedRequest request = base;
  request.frameRate = input.Format().GetFrameRate();
  double energy = 0.0;
  std::uint64_t frames = 0;
  for (; input.Next(frame); ++frames) {
    request.frameIndex = frames;
    energy += embedder.Embed(frame, request);
    output.Write(frame);
  }
  std::fprintf(stderr, "energy %g\n", frames > 0 ? energy / static_cast<double>(frames) : 0.0);
  return 0;
}

int Detect(std::uint64_t seed) {
  Framework::StreamFile in("-", Framework::StreamFile::Mode::Read);
  Quillmar::Tools::Y4mReader input(in);
  Framework::Frame frame(input.Format());
  const double frameRate = input.Format().GetFrameRate();
  Lumenseal::WatermarkDetector detector(seed, frameRate);
  double maxSync = std::numeric_limits<double>::lowest();
  double minSync = std::numeric_limits<double>::max();
  std::uint64_t frames = 0;
  for (; input.Next(frame); ++frames) {
    const auto report = detector.ProcessFrame(frame);
    maxSync = std::max(maxSync, detector.SyncScore());
    if (frames + 1 >= static_cast<std::uint64_t>(frameRate)) {
      minSync = std::min(minSync, detector.SyncScore());
    }
    for (const auto& found : report.detections) {
      std::printf("second %u %d %.3f %.2f %.2f\n", found.cid, found.timestamp, found.quality,
                  found.mediaTime, static_cast<double>(frames + 1) / frameRate);
    }
    if (report.presence) std::printf("presence %d %.2f\n", *report.presence ? 1 : 0, report.presenceMediaTime);
  }
  std::printf("summary %llu %.2f %.2f %.2f\n", static_cast<unsigned long long>(frames), maxSync,
              minSync, Lumenseal::WatermarkDetector::kPresenceOn);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Marks or reads the reference watermark in a Y4M stream"};
  app.require_subcommand(1);
  std::uint64_t seed = 0;
  Lumenseal::EmbedRequest request;
  Lumenseal::EmbedderStrength strength;
  auto* embed = app.add_subcommand("embed", "mark stdin to stdout");
  embed->add_option("--seed", seed)->required();
  embed->add_option("--cid", request.cid)->required();
  embed->add_option("--slot-start", request.slotStart, "seconds since 2000-01-01")->required();
  embed->add_option("--depth", strength.globalDepth);
  embed->add_option("--max-local", strength.maxLocalDepth);
  auto* detect = app.add_subcommand("detect", "read stdin, print what is found");
  detect->add_option("--seed", seed)->required();
  CLI11_PARSE(app, argc, argv);
  try {
    return embed->parsed() ? Embed(seed, request, strength) : Detect(seed);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "watermark_driver: %s\n", error.what());
    return 1;
  }
}
