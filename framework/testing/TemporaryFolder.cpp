#include "framework/testing/TemporaryFolder.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <stdexcept>

namespace Framework::Testing {

// A random name, taken only if no folder has it yet: create_directory says whether it made one.
TemporaryFolder::TemporaryFolder() {
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[32];
    std::snprintf(name, sizeof name, "quillmar-test-%08x", static_cast<unsigned>(random()));
    std::error_code error;
    if (std::filesystem::create_directory(base / name, error)) {
      path_ = base / name;
      return;
    }
    if (error) {
      throw std::runtime_error("cannot create a folder in " + base.string() + ": " +
                               error.message());
    }
  }
  throw std::runtime_error("no free folder name in " + base.string());
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::Write(const std::string& name, const std::string& bytes) const {
  const std::filesystem::path file = path_ / name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << bytes;
  return file.string();
}

}  // namespace Framework::Testing
