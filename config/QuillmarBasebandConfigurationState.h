// The configuration of one channel as a host application sees it: programs, CIDs, payload
// types and the video format, through plain character buffers, without a channel.
//
// Constructing it starts the process's file log (unless already started) under the
// configuration's root folder and loads the configuration file with checksum checking on.
//
// Buffers: every operation that returns text copies at most 1023 characters and always writes
// a terminating NUL at position 1023, so every buffer must hold at least 1024 bytes; longer
// values are cut. Indexes: a program index is converted to a signed 32-bit integer and must be
// at least 0 and below CountProgramNames(); otherwise the operation returns false and leaves
// the buffer untouched. No operation throws. Not thread-safe: one thread at a time.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "config/ConfigurationModel.h"
#include "config/ConfigurationReader.h"
#include "framework/VideoFormatInfo.h"
#include "framework/platform/Export.h"

namespace QuillmarBasebandSDK {

using FrameFormat = Framework::PixelLayout;

class QUILLMAR_API QuillmarBasebandConfigurationState {
 public:
  // Bytes every caller's text buffer must hold; text is cut to one less.
  static constexpr std::size_t kBufferSize = 1024;

  // The configuration under `rootPath`: "Cfg/QLM_LumensealProp.cfg" below it. A leading "//:" is
  // skipped and backslashes become slashes. The log goes to "Logs/" below the root.
  explicit QuillmarBasebandConfigurationState(const char* rootPath);

  // The configuration file `configFile` itself (line-oriented files are read from section
  // `sectionName`); the log goes to "Logs/" beside the file.
  QuillmarBasebandConfigurationState(const std::string& configFile,
                                     const std::string& sectionName);

  ~QuillmarBasebandConfigurationState();
  QuillmarBasebandConfigurationState(const QuillmarBasebandConfigurationState&) = delete;
  QuillmarBasebandConfigurationState& operator=(const QuillmarBasebandConfigurationState&) = delete;

  // Whether use of the product is licensed (`productName` null: this product).
  static bool IsLicensed(char* productName);

  // Copies at most 1023 characters of `text` into `buffer` and a NUL at position 1023. True.
  static bool copystr(const std::string& text, char* buffer);

  // The configuration file below `rootPath` ("Cfg/QLM_LumensealProp.cfg"), after the root path
  // rule: a leading "//:" is skipped and backslashes become slashes.
  static std::string ConfigFileForRoot(const std::string& rootPath);

  // True when 0 <= index < number of programs.
  bool verifyIndex(int index) const;

  // Loads the file again (with checksum checking) when `force` is set or it never loaded;
  // returns whether the last load succeeded. A failed load leaves no programs.
  bool ParseConfiguration(bool force);

  std::size_t CountProgramNames() const;
  bool GetProgramName(std::size_t index, char* buffer) const;
  // The entry's first EID, in decimal.
  bool GetCIDName(std::size_t index, char* buffer) const;
  // The entry's EIDs joined with ", ".
  bool GetAllCIDNamesForProgram(std::size_t index, char* buffer) const;
  // The rate text of the entry's payload size ("48 bits per second").
  bool GetPayloadType(std::size_t index, char* buffer) const;
  bool GetPayloadType(std::size_t index, char* buffer, std::string& text) const;
  // "gd{global depth}-mld{maximum local depth}-flat{flat value}", as the start-up log shows it.
  bool GetEmbeddingStrength(std::size_t index, char* buffer) const;

  // False when no program is active, else copies its name.
  bool GetActiveProgramName(char* buffer) const;
  // Clears the active program; makes `name` active when a program has that name.
  bool SetActiveProgramByName(const char* name);
  // A valid index makes that program active; otherwise clears the active program and fails.
  bool SetActiveProgramByIndex(std::size_t index);
  // True when some program has exactly this name.
  bool ValidateProgramName(const char* name) const;
  // Index of the first program named `name`; the largest size value when none.
  std::size_t GetIndexFromProgramname(std::string name) const;
  // The program's EIDs joined with ", "; empty for an unknown program.
  std::string GetAllCIDsFromProgramName(std::string name) const;
  std::string GetAllCIDsFromProgramIndex(std::size_t index) const;

  bool SetVideoFormat(FrameFormat format, double frameRate, std::size_t width, std::size_t height);
  double GetFrameRate() const { return frameRate_; }
  std::size_t GetVideoWidth() const { return width_; }
  std::size_t GetVideoHeight() const { return height_; }
  FrameFormat GetFrameFormat() const { return frameFormat_; }

  // The root path (or configuration file) as given to the constructor.
  bool GetRootPath(char* buffer) const;

  void SetEmbeddingDuration(std::size_t seconds) { embeddingDuration_ = seconds; }
  // Copies the shared database path into `buffer` and the duration into `duration` (when not
  // null); returns the duration. The pairing is kept for existing hosts.
  std::size_t GetEmbeddingDuration(char* buffer, std::size_t* duration) const;

  // The metadata keys of the program named `programName`, ordered; false for an unknown name.
  bool GetEncodationInformationFieldsKeys(std::string& programName,
                                          std::vector<std::string>& keys) const;

  // --- For the channel, in the same library ---
  // The checksum text of the loaded file; false when the checksum was not verified.
  bool GetConfigurationChecksum(std::string& text) const;
  // The shared database path; false when the configuration names none.
  bool GetSharedDatabase(std::string& path) const;
  const std::vector<ProgramEntry>& GetPrograms() const { return programs_; }
  // The CIDs this client may see, as decimal texts: every program's EIDs, the detector's
  // DisplayEIDS, and "0" (every CID) when the detector displays all watermarks.
  const std::set<std::string>& GetClientCids() const { return clientCids_; }
  const ContentProcessorSettings& GetSettings() const { return reader_.Settings(); }
  const std::string& GetConfigFilePath() const { return configFile_; }
  // The reader's error text after a failed load.
  const std::string& GetErrorText() const { return reader_.ErrorText(); }

 private:
  QuillmarBasebandConfigurationState(std::string givenPath, std::string configFile,
                                     std::string logDirectory, const std::string& sectionName);
  void Load();
  void LogConfigurationInfo() const;
  const ProgramEntry* Entry(std::size_t index) const;
  const ProgramEntry* EntryNamed(const std::string& name) const;

  // Constant after construction
  std::string rootPath_;
  std::string configFile_;

  ConfigurationReader reader_;
  bool loaded_ = false;
  bool loadSucceeded_ = false;
  std::vector<ProgramEntry> programs_;
  std::set<std::string> clientCids_;
  std::string sharedDatabase_;
  std::size_t embeddingDuration_ = 0;
  std::string activeProgram_;
  FrameFormat frameFormat_ = static_cast<FrameFormat>(Framework::FormatInfo::kNoFormat);
  double frameRate_ = 0.0;
  std::size_t width_ = 0;
  std::size_t height_ = 0;
};

}  // namespace QuillmarBasebandSDK
