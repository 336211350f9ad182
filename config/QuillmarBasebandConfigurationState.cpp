#include "config/QuillmarBasebandConfigurationState.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <limits>
#include <set>

#include "framework/Licenser.h"
#include "framework/Logger.h"
#include "logging/LogStartup.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr char kProductName[] = "QuillmarBasebandSDK";
constexpr char kRootPrefix[] = "//:";
constexpr char kConfigFile[] = "Cfg/QLM_LumensealProp.cfg";
constexpr char kCurrentFolder[] = ".";
constexpr std::size_t kNoIndex = std::numeric_limits<std::size_t>::max();

// Skips a leading "//:" and turns every backslash into a slash.
std::string NormalisedPath(std::string path) {
  if (path.rfind(kRootPrefix, 0) == 0) path.erase(0, std::strlen(kRootPrefix));
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

std::string FolderOf(const std::string& file) {
  const std::string folder = std::filesystem::path(file).parent_path().generic_string();
  return folder.empty() ? kCurrentFolder : folder;
}

// True for a path that names the same file from every folder, on this system or on Windows
// (/srv/x, \\server\x, C:\x, C:/x), and for a URI (postgresql://..., file:x).
bool IsAnchored(const std::string& path) {
  if (path.empty() || path[0] == '/' || path[0] == '\\') return true;
  if (path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':') {
    return true;
  }
  return path.find("://") != std::string::npos || path.rfind("file:", 0) == 0 ||
         std::filesystem::path(path).is_absolute();
}

// The shared database a configuration file names, wherever the host runs from: a relative path
// is taken from the configuration file's folder, so that every embedder of the machine that
// reads this configuration opens the same database.
std::string ResolvedSharedDatabase(const std::string& written, const std::string& configFile) {
  if (IsAnchored(written)) return written;
  std::error_code ignored;
  const auto folder = std::filesystem::absolute(FolderOf(configFile), ignored);
  return (folder / written).lexically_normal().generic_string();
}

std::string StrengthText(const WatermarkParameters& vwm) {
  return (boost::format("gd%1%-mld%2%-flat%3%") % vwm.globalDepth % vwm.maxLocalDepth %
          vwm.flatRegion)
      .str();
}

// The CIDs this client may see, as decimal texts: every program's EIDs and the detector's
// DisplayEIDS; "0", which admits every CID, when the detector displays all watermarks.
std::set<std::string> ClientCidsOf(const std::vector<ProgramEntry>& programs,
                                   const DetectorSettings& detector) {
  std::set<std::string> cids;
  const auto add = [&cids](std::int64_t eid) {
    cids.insert(std::to_string(static_cast<std::uint32_t>(eid)));
  };
  for (const ProgramEntry& program : programs) {
    std::for_each(program.vwm.eids.begin(), program.vwm.eids.end(), add);
  }
  std::for_each(detector.displayEids.begin(), detector.displayEids.end(), add);
  if (detector.displayAllWatermarks) cids.insert("0");
  return cids;
}

}  // namespace

QuillmarBasebandConfigurationState::QuillmarBasebandConfigurationState(const char* rootPath)
    : QuillmarBasebandConfigurationState(
          rootPath != nullptr ? rootPath : "",
          ConfigFileForRoot(rootPath != nullptr ? rootPath : ""),
          rootPath != nullptr && *rootPath != '\0' ? NormalisedPath(rootPath) : kCurrentFolder,
          ConfigurationReader::kDefaultSection) {}

QuillmarBasebandConfigurationState::QuillmarBasebandConfigurationState(
    const std::string& configFile, const std::string& sectionName)
    : QuillmarBasebandConfigurationState(configFile, NormalisedPath(configFile),
                                         FolderOf(NormalisedPath(configFile)), sectionName) {}

QuillmarBasebandConfigurationState::QuillmarBasebandConfigurationState(
    std::string givenPath, std::string configFile, std::string logDirectory,
    const std::string& sectionName)
    : rootPath_(std::move(givenPath)),
      configFile_(std::move(configFile)),
      reader_(configFile_, sectionName) {
  try {
    LogStartup::StartLogging(logDirectory);
    Load();
    LogConfigurationInfo();
  } catch (const std::exception& error) {
    Framework::Logger::Exception(error, "QuillmarBasebandConfigurationState");
  }
}

QuillmarBasebandConfigurationState::~QuillmarBasebandConfigurationState() = default;

bool QuillmarBasebandConfigurationState::IsLicensed(char* productName) {
  try {
    return Framework::Licenser(productName != nullptr ? productName : kProductName).IsValid();
  } catch (const std::exception& error) {
    Framework::Logger::Exception(error, "QuillmarBasebandConfigurationState::IsLicensed");
    return false;
  }
}

std::string QuillmarBasebandConfigurationState::ConfigFileForRoot(const std::string& rootPath) {
  const std::string root = NormalisedPath(rootPath);
  const bool joined = root.empty() || root.back() == '/';
  return root + (joined ? "" : "/") + kConfigFile;
}

bool QuillmarBasebandConfigurationState::copystr(const std::string& text, char* buffer) {
  if (buffer != nullptr) {
    std::strncpy(buffer, text.c_str(), kBufferSize - 1);
    buffer[kBufferSize - 1] = '\0';
  }
  return true;
}

bool QuillmarBasebandConfigurationState::verifyIndex(int index) const {
  return index >= 0 && static_cast<std::size_t>(index) < programs_.size();
}

void QuillmarBasebandConfigurationState::Load() {
  loaded_ = true;
  loadSucceeded_ = reader_.Load(true);
  programs_.clear();
  if (loadSucceeded_) {
    programs_ = reader_.Settings().programs;
  } else {
    Framework::Logger::Error(
        boost::format("QuillmarBasebandConfiguration config file parsing failed. %1%") %
        reader_.ErrorText());
  }
  sharedDatabase_ = reader_.Settings().hasSharedDatabase
                        ? ResolvedSharedDatabase(reader_.Settings().sharedDatabase, configFile_)
                        : "";
  clientCids_ = ClientCidsOf(programs_, reader_.Settings().detector);
}

void QuillmarBasebandConfigurationState::LogConfigurationInfo() const {
  if (reader_.Settings().hasSharedDatabase) {
    Framework::Logger::Info("Creating QuillmarBasebandConfiguration. Parsing config file... done.");
  } else {
    Framework::Logger::Warning("Shared database name not found!");
  }
  Framework::Logger::Info("Config file info:");
  const std::string& written = reader_.Settings().sharedDatabase;
  Framework::Logger::Info(boost::format("Shared database: %1%") % written);
  if (sharedDatabase_ != written) {
    Framework::Logger::Info(boost::format("Shared database %1% is taken from the configuration "
                                          "file's folder: %2%") %
                            written % sharedDatabase_);
  }
  Framework::Logger::Info(boost::format("Number of CPPs found: %1%") % programs_.size());
  for (std::size_t i = 0; i < programs_.size(); ++i) {
    const ProgramEntry& entry = programs_[i];
    Framework::Logger::Info(
        boost::format(
            "%1% CPP: name %2%, EIDs %3%, strength gd%4%-mld%5%-flat%6%, content type %7%") %
        i % entry.name % JoinEids(entry.vwm.eids) % entry.vwm.globalDepth %
        entry.vwm.maxLocalDepth % entry.vwm.flatRegion % ContentTypeName(entry.contentType));
  }
}

bool QuillmarBasebandConfigurationState::ParseConfiguration(bool force) {
  try {
    if (force || !loaded_) Load();
  } catch (const std::exception& error) {
    Framework::Logger::Exception(error, "QuillmarBasebandConfigurationState::ParseConfiguration");
    programs_.clear();
    loadSucceeded_ = false;
  }
  return loadSucceeded_;
}

const ProgramEntry* QuillmarBasebandConfigurationState::Entry(std::size_t index) const {
  const int signedIndex = static_cast<int>(index);
  return verifyIndex(signedIndex) ? &programs_[static_cast<std::size_t>(signedIndex)] : nullptr;
}

const ProgramEntry* QuillmarBasebandConfigurationState::EntryNamed(const std::string& name) const {
  const auto found = std::find_if(programs_.begin(), programs_.end(),
                                  [&](const ProgramEntry& entry) { return entry.name == name; });
  return found != programs_.end() ? &*found : nullptr;
}

std::size_t QuillmarBasebandConfigurationState::CountProgramNames() const {
  return programs_.size();
}

bool QuillmarBasebandConfigurationState::GetProgramName(std::size_t index, char* buffer) const {
  const ProgramEntry* entry = Entry(index);
  return entry != nullptr && copystr(entry->name, buffer);
}

bool QuillmarBasebandConfigurationState::GetCIDName(std::size_t index, char* buffer) const {
  const ProgramEntry* entry = Entry(index);
  return entry != nullptr &&
         copystr(entry->vwm.eids.empty() ? "" : std::to_string(entry->vwm.eids.front()), buffer);
}

bool QuillmarBasebandConfigurationState::GetAllCIDNamesForProgram(std::size_t index,
                                                                  char* buffer) const {
  const ProgramEntry* entry = Entry(index);
  return entry != nullptr && copystr(JoinEids(entry->vwm.eids), buffer);
}

bool QuillmarBasebandConfigurationState::GetPayloadType(std::size_t index, char* buffer) const {
  std::string text;
  return GetPayloadType(index, buffer, text);
}

bool QuillmarBasebandConfigurationState::GetPayloadType(std::size_t index, char* buffer,
                                                        std::string& text) const {
  const ProgramEntry* entry = Entry(index);
  if (entry == nullptr) return false;
  text = PayloadRateText(static_cast<int>(entry->payloadSize));
  return copystr(text, buffer);
}

bool QuillmarBasebandConfigurationState::GetEmbeddingStrength(std::size_t index,
                                                              char* buffer) const {
  const ProgramEntry* entry = Entry(index);
  return entry != nullptr && copystr(StrengthText(entry->vwm), buffer);
}

bool QuillmarBasebandConfigurationState::GetActiveProgramName(char* buffer) const {
  return !activeProgram_.empty() && copystr(activeProgram_, buffer);
}

bool QuillmarBasebandConfigurationState::SetActiveProgramByName(const char* name) {
  activeProgram_.clear();
  if (!ValidateProgramName(name)) return false;
  activeProgram_ = name;
  return true;
}

bool QuillmarBasebandConfigurationState::SetActiveProgramByIndex(std::size_t index) {
  const ProgramEntry* entry = Entry(index);
  activeProgram_ = entry != nullptr ? entry->name : "";
  return entry != nullptr;
}

bool QuillmarBasebandConfigurationState::ValidateProgramName(const char* name) const {
  return name != nullptr && HasProgramNamed(programs_, name);
}

std::size_t QuillmarBasebandConfigurationState::GetIndexFromProgramname(std::string name) const {
  const ProgramEntry* entry = EntryNamed(name);
  return entry != nullptr ? static_cast<std::size_t>(entry - programs_.data()) : kNoIndex;
}

std::string QuillmarBasebandConfigurationState::GetAllCIDsFromProgramName(std::string name) const {
  const ProgramEntry* entry = EntryNamed(name);
  return entry != nullptr ? JoinEids(entry->vwm.eids) : "";
}

std::string QuillmarBasebandConfigurationState::GetAllCIDsFromProgramIndex(
    std::size_t index) const {
  const ProgramEntry* entry = Entry(index);
  return entry != nullptr ? JoinEids(entry->vwm.eids) : "";
}

bool QuillmarBasebandConfigurationState::SetVideoFormat(FrameFormat format, double frameRate,
                                                        std::size_t width, std::size_t height) {
  frameFormat_ = format;
  frameRate_ = frameRate;
  width_ = width;
  height_ = height;
  return true;
}

bool QuillmarBasebandConfigurationState::GetRootPath(char* buffer) const {
  return copystr(rootPath_, buffer);
}

std::size_t QuillmarBasebandConfigurationState::GetEmbeddingDuration(char* buffer,
                                                                     std::size_t* duration) const {
  copystr(sharedDatabase_, buffer);
  if (duration != nullptr) *duration = embeddingDuration_;
  return embeddingDuration_;
}

bool QuillmarBasebandConfigurationState::GetEncodationInformationFieldsKeys(
    std::string& programName, std::vector<std::string>& keys) const {
  const ProgramEntry* entry = EntryNamed(programName);
  if (entry == nullptr) return false;
  keys.clear();
  for (const auto& field : entry->metadataFields) keys.push_back(field.first);
  return true;
}

bool QuillmarBasebandConfigurationState::GetConfigurationChecksum(std::string& text) const {
  if (!reader_.Settings().checksumValid) return false;
  text = reader_.Settings().checksumText;
  return true;
}

bool QuillmarBasebandConfigurationState::GetSharedDatabase(std::string& path) const {
  path = sharedDatabase_;
  return !sharedDatabase_.empty();
}

}  // namespace QuillmarBasebandSDK
