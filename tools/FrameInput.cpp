#include "tools/FrameInput.h"

#include <stdexcept>

#include "tools/SyntheticSource.h"
#include "tools/Y4mReader.h"

namespace Quillmar::Tools {
namespace {

// A Y4M source that owns the file it reads.
class Y4mFileSource : public FrameSource {
 public:
  explicit Y4mFileSource(const std::string& path)
      : file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")), owned_(path != "-") {
    if (file_ == nullptr) throw std::runtime_error("cannot open " + path);
    try {
      reader_ = std::make_unique<Y4mReader>(file_);
    } catch (...) {
      Close();
      throw;
    }
  }
  ~Y4mFileSource() override { Close(); }
  Y4mFileSource(const Y4mFileSource&) = delete;
  Y4mFileSource& operator=(const Y4mFileSource&) = delete;

  const Framework::VideoFormatInfo& Format() const override { return reader_->Format(); }
  bool Next(Framework::Frame& frame) override { return reader_->Next(frame); }

 private:
  void Close() {
    if (owned_) std::fclose(file_);
  }

  std::FILE* file_;
  bool owned_;
  std::unique_ptr<Y4mReader> reader_;
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

OutputStream::OutputStream(const std::string& path) {
  if (path.empty()) return;
  if (path == "-") {
    stream_ = stdout;
    return;
  }
  stream_ = std::fopen(path.c_str(), "wb");
  if (stream_ == nullptr) throw std::runtime_error("cannot create " + path);
  owned_ = true;
}

OutputStream::~OutputStream() {
  if (owned_) std::fclose(stream_);
}

}  // namespace Quillmar::Tools
