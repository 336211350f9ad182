// The frame input and output of the host commands: a Y4M file, standard input or the synthetic
// source in; a Y4M file or standard output out.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "tools/FrameSource.h"

namespace Quillmar::Tools {

struct FrameInputOptions {
  std::string path;       // a Y4M file, or "-" for standard input
  std::string synthetic;  // WIDTHxHEIGHT@RATE
  double seconds = 10.0;  // length of the synthetic source

  // "synthetic 1920x1080@25, 10 s", "standard input" or the path.
  std::string Describe() const;
};

// Adds -i/--input, --synthetic and --seconds to `command`; exactly one of -i and --synthetic.
void AddFrameInputOptions(CLI::App& command, FrameInputOptions& options);

// Opens the input the options name. Throws std::runtime_error when it cannot be opened or read.
std::unique_ptr<FrameSource> OpenFrameInput(const FrameInputOptions& options);

// A stream to write to: a file, standard output for "-", nothing for "". Closes a file it opened.
class OutputStream {
 public:
  // Throws std::runtime_error when the file cannot be created.
  explicit OutputStream(const std::string& path);
  ~OutputStream();
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  // The stream, or null when there is no output.
  std::FILE* Get() const { return stream_; }

 private:
  std::FILE* stream_ = nullptr;
  bool owned_ = false;
};

}  // namespace Quillmar::Tools
