#include "EncodationLogFile.h"

#include "framework/platform/LockedAppendFile.h"

namespace LumensealReference {

bool EncodationLogFile::Append(const std::string& line, std::string* error) const {
  std::error_code folderError;
  if (path_.has_parent_path()) {
    std::filesystem::create_directories(path_.parent_path(), folderError);
  }
  if (folderError) {
    *error = "cannot create the folder of " + path_.string() + ": " + folderError.message();
    return false;
  }
  Framework::LockedAppendFile file(path_.string());
  if (!file.Error().empty()) {
    *error = file.Error();
    return false;
  }
  return file.Append(line + '\n', error);
}

}  // namespace LumensealReference
