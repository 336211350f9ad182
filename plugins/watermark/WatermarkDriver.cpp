// watermark_driver: runs the watermark on a Y4M stream, for scripts/watermark-quality.
//   watermark_driver embed --seed S --cid C --slot-start T [--depth D] [--max-local M] < in > out
//     marks every frame of a 4:2:0 Y4M stream and writes it out as Y4M; prints the mean energy
//     to stderr.
//   watermark_driver detect --seed S < in
//     prints one line per confirmed second ("second cid timestamp quality media_time reported_at",
//     the last being the media time of the frame that completed it), one per presence change
//     ("presence state media_time") and a closing line with the frame count, the highest sync
//     score seen (what presence is judged by, from the first frame on) and the lowest once a whole
//     second is in ("summary frames max_sync min_sync").
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>

#include "WatermarkDetector.h"
#include "WatermarkEmbedder.h"

namespace {

struct Y4mHeader {
  std::string line;
  int width = 0;
  int height = 0;
  double frameRate = 25.0;
};

std::optional<Y4mHeader> ReadHeader(std::istream& in) {
  Y4mHeader header;
  if (!std::getline(in, header.line) || header.line.rfind("YUV4MPEG2", 0) != 0) return std::nullopt;
  std::istringstream tokens(header.line);
  std::string token;
  while (tokens >> token) {
    if (token[0] == 'W') header.width = std::stoi(token.substr(1));
    if (token[0] == 'H') header.height = std::stoi(token.substr(1));
    if (token[0] == 'F') {
      const auto colon = token.find(':');
      header.frameRate = std::stod(token.substr(1, colon - 1)) / std::stod(token.substr(colon + 1));
    }
    if (token[0] == 'C' && token.rfind("C420", 0) != 0) return std::nullopt;
  }
  if (header.width <= 0 || header.height <= 0) return std::nullopt;
  return header;
}

// Reads the next frame's planes into `frame`; false at the end of the stream.
bool ReadFrame(std::istream& in, Framework::Frame& frame) {
  std::string marker;
  if (!std::getline(in, marker) || marker.rfind("FRAME", 0) != 0) return false;
  const auto& format = frame.GetFormat();
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
      char* row = reinterpret_cast<char*>(frame.GetPlane(plane) +
                                          static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane));
      if (!in.read(row, format.GetPlaneWidth(plane))) return false;
    }
  }
  return true;
}

void WriteFrame(std::ostream& out, const Framework::Frame& frame) {
  out << "FRAME\n";
  const auto& format = frame.GetFormat();
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
      out.write(reinterpret_cast<const char*>(frame.GetPlane(plane) +
                                              static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane)),
                format.GetPlaneWidth(plane));
    }
  }
}

int NotY4m() {
  std::cerr << "watermark_driver: stdin is not a 4:2:0 Y4M stream\n";
  return 1;
}

Framework::Frame FrameFor(const Y4mHeader& header) {
  return Framework::Frame(Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, header.width,
                                                     header.height, header.frameRate));
}

int Embed(std::uint64_t seed, const Lumenseal::EmbedRequest& base,
          const Lumenseal::EmbedderStrength& strength) {
  const auto header = ReadHeader(std::cin);
  if (!header) return NotY4m();
  Framework::Frame frame = FrameFor(*header);
  Lumenseal::WatermarkEmbedder embedder(seed, strength);
  std::cout << header->line << '\n';
  Lumenseal::EmbedRequest request = base;
  request.frameRate = header->frameRate;
  double energy = 0.0;
  std::uint64_t frames = 0;
  for (; ReadFrame(std::cin, frame); ++frames) {
    request.frameIndex = frames;
    energy += embedder.Embed(frame, request);
    WriteFrame(std::cout, frame);
  }
  std::cerr << "energy " << (frames > 0 ? energy / static_cast<double>(frames) : 0.0) << '\n';
  return 0;
}

int Detect(std::uint64_t seed) {
  const auto header = ReadHeader(std::cin);
  if (!header) return NotY4m();
  Framework::Frame frame = FrameFor(*header);
  Lumenseal::WatermarkDetector detector(seed, header->frameRate);
  double maxSync = std::numeric_limits<double>::lowest();
  double minSync = std::numeric_limits<double>::max();
  std::uint64_t frames = 0;
  for (; ReadFrame(std::cin, frame); ++frames) {
    const auto report = detector.ProcessFrame(frame);
    maxSync = std::max(maxSync, detector.SyncScore());
    if (frames + 1 >= static_cast<std::uint64_t>(header->frameRate)) {
      minSync = std::min(minSync, detector.SyncScore());
    }
    for (const auto& found : report.detections) {
      std::printf("second %u %d %.3f %.2f %.2f\n", found.cid, found.timestamp, found.quality,
                  found.mediaTime, static_cast<double>(frames + 1) / header->frameRate);
    }
    if (report.presence) std::printf("presence %d %.2f\n", *report.presence ? 1 : 0, report.presenceMediaTime);
  }
  std::printf("summary %llu %.2f %.2f\n", static_cast<unsigned long long>(frames), maxSync, minSync);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
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
  if (embed->parsed()) return Embed(seed, request, strength);
  return Detect(seed);
}
