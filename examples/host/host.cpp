// A minimal host of the Quillmar channel: loads the channel library by its plain entry points,
// runs one embedding session over four seconds of a generated 640x360 picture, and writes the
// marked frames as a Y4M file that `quillmar detect` reads back.
//   quillmar_host <configuration file> <program> <output.y4m>
#include <dlfcn.h>

#include <cstdio>
#include <cstdint>
#include <list>
#include <vector>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr double kFrameRate = 25.0;
constexpr int kFrames = 100;

// Reports of the channel, one line each on standard error.
class PrintingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  void OnEmbeddingReport(float energy, bool embedding) override {
    std::fprintf(stderr, "energy %.3f%s\n", energy, embedding ? "" : " (bypassed)");
  }
  void OnError(const char* message) override { std::fprintf(stderr, "error: %s\n", message); }
  void OnWarning(const char* message) override { std::fprintf(stderr, "warning: %s\n", message); }
  void OnInfo(const char* message) override { std::fprintf(stderr, "info: %s\n", message); }
  void OnDetection(bool, const char* cid, const char* time, double) override {
    std::fprintf(stderr, "detection: %s at %s\n", cid, time);
  }
};

// A textured picture that drifts a little every frame.
void Paint(Framework::Frame& frame, int index) {
  for (int y = 0; y < kHeight; ++y) {
    std::uint8_t* row = frame.GetPlane(0) + y * frame.GetPitch(0);
    for (int x = 0; x < kWidth; ++x) row[x] = static_cast<std::uint8_t>(60 + ((x + 2 * index) * 7 ^ y * 5) % 120);
  }
}

void WriteFrame(std::FILE* file, const Framework::Frame& frame) {
  std::fputs("FRAME\n", file);
  for (int plane = 0; plane < 3; ++plane) {
    const auto& format = frame.GetFormat();
    for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
      std::fwrite(frame.GetPlane(plane) + y * frame.GetPitch(plane), 1, format.GetPlaneWidth(plane), file);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: quillmar_host <configuration> <program> <output.y4m>\n");
    return 2;
  }
  // The library this program is linked with, opened again by name as a host opens it.
  void* library = dlopen("libQuillmarBasebandSDK.so.1", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  using Create = Framework::ProcessorBase* (*)(const Framework::PropertyBase&);
  using Delete = void (*)(Framework::ProcessorBase*);
  const auto create = reinterpret_cast<Create>(dlsym(library, "CreateProcessor"));
  const auto destroy = reinterpret_cast<Delete>(dlsym(library, "DeleteProcessor"));

  // The program's CIDs and every CID of the configuration.
  QuillmarBasebandSDK::QuillmarBasebandConfigurationState configuration(argv[1], "COMMON");
  std::vector<unsigned> programCids;
  std::list<unsigned> configurationCids;
  for (const auto& program : configuration.GetPrograms()) {
    for (const auto eid : program.vwm.eids) {
      configurationCids.push_back(static_cast<unsigned>(eid));
      if (program.name == argv[2]) programCids.push_back(static_cast<unsigned>(eid));
    }
  }

  auto* channel = dynamic_cast<Framework::QuillmarBasebandSDKChannel*>(create(Framework::PropertyBase()));
  PrintingListener listener;
  const Framework::VideoFormatInfo format(Framework::PixelLayout::Yuv420P8, kWidth, kHeight, kFrameRate);
  channel->OnCreateChannel(0);
  channel->SetListener(&listener);
  channel->SetConfigFile(argv[1]);
  channel->SetProgramName(argv[2]);
  channel->SetEmbeddingDuration(kFrames / 25);
  channel->SetAllCIDsInProgram(programCids);
  channel->SetAllEmbedderCIDsInConfig(configurationCids);
  channel->SetFrameRate(kFrameRate);
  channel->SetFormatInfo(format);
  if (!channel->InitProcessor() || !channel->StartProcessor()) {
    std::fprintf(stderr, "the channel did not start: %s\n", channel->GetLastErrorText().c_str());
    destroy(channel);
    return 1;
  }
  std::FILE* output = std::fopen(argv[3], "wb");
  std::fprintf(output, "YUV4MPEG2 W%d H%d F25:1 Ip A1:1 C420jpeg\n", kWidth, kHeight);
  Framework::Frame frame(format);
  for (int index = 0; index < kFrames; ++index) {
    Paint(frame, index);
    channel->DeliverFrame(&frame);
    WriteFrame(output, frame);
  }
  std::fclose(output);
  channel->WriteEncodationLog("quillmar_host", "generated picture", argv[2], {{"itemid", "HOST-1"}});
  channel->StopProcessor();
  channel->DeinitProcessor();
  destroy(channel);
  std::fprintf(stderr, "marked %d frames into %s\n", kFrames, argv[3]);
  return 0;
}
