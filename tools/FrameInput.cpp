#include "tools/FrameInput.h"

#include <stdexcept>

#include "tools/SyntheticSource.h"
#include "tools/Y4mReader.h"

namespace Quillmar::Tools {
namespace {

// A Y4M source that owns the stream it reads.
class Y4mFileSource : public FrameSource {
 public:
  explicit Y4mFileSource(const std::string& path)
      : stream_(path, Framework::StreamFile::Mode::Read), reader_(stream_) {}

  const Framework::VideoFormatInfo& Format() const override { return reader_.Format(); }
  bool Next(Framework::Frame& frame) override { return reader_.Next(frame); }
  std::uint64_t ExpectedFrames() const override { return reader_.ExpectedFrames(); }
  std::vector<std::string> Y4mParameters() const override { return reader_.Y4mParameters(); }

 private:
  Framework::StreamFile stream_;
  Y4mReader reader_;
};

}  // namespace

std::string FrameInputOptions::Describe() const {
  if (!synthetic.empty()) return "synthetic " + synthetic + ", " + std::to_string(seconds) + " s";
  return path == "-" ? "standard input" : path;
}

void AddFrameInputOptions(CLI::App& command, FrameInputOptions& options) {
  auto* input = command.add_option("-i,--input", options.path, "Y4M input file, - for stdin");
  auto* synthetic = command.add_option("--synthetic", options.synthetic,
                                       "Generated input WIDTHxHEIGHT@RATE, as 1920x1080@25");
  command.add_option("--seconds", options.seconds, "Length of the generated input")
      ->check(CLI::PositiveNumber);
  input->excludes(synthetic);
  command.callback([input, synthetic] {
    if (input->count() + synthetic->count() == 0) {
      throw CLI::RequiredError("-i or --synthetic");
    }
  });
}

std::unique_ptr<FrameSource> OpenFrameInput(const FrameInputOptions& options) {
  if (!options.synthetic.empty()) {
    return std::make_unique<SyntheticSource>(options.synthetic, options.seconds);
  }
  return std::make_unique<Y4mFileSource>(options.path);
}

}  // namespace Quillmar::Tools
