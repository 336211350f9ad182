// A fresh folder under the system's temporary folder for one test, removed with everything in it.
#pragma once

#include <filesystem>
#include <string>

namespace Framework::Testing {

class TemporaryFolder {
 public:
  // Creates the folder; throws std::runtime_error when it cannot.
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // The folder.
  const std::filesystem::path& Path() const { return path_; }

  // The path of `name` inside the folder.
  std::string File(const std::string& name) const { return (path_ / name).string(); }

  // Writes `bytes` to `name` inside the folder (creating folders) and returns the file's path.
  std::string Write(const std::string& name, const std::string& bytes) const;

 private:
  std::filesystem::path path_;
};

}  // namespace Framework::Testing
