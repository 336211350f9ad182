// quillmar config check|sign|show: checks, signs and shows configuration files with the
// product's own reader, so that what the tool accepts is exactly what a channel accepts.
//
//   check FILE            exit 0 and the checksum text on the first line of standard output, or
//                         exit 1 and the reader's error text as the last line of standard error
//                         (after where the text stops being JSON, for a file that is not)
//   sign FILE [-o OUT]    writes FILE (or OUT) with the correct checksum, other bytes unchanged;
//                         only what check then accepts, unless --force
//   show ROOT_OR_FILE     the shared database and a table of the programs (--json: as JSON)
#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "config/ConfigurationReader.h"
#include "config/ConfigurationSigner.h"
#include "config/JsonDocument.h"
#include "config/LineForm.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/JsonOutput.h"

namespace Quillmar::Tools {
namespace {

using QuillmarBasebandSDK::ConfigurationReader;
using QuillmarBasebandSDK::ProgramEntry;

constexpr bool kCheckChecksum = true;

struct ConfigOptions {
  std::string file;
  std::string output;
  bool json = false;
  bool force = false;     // sign even what the reader then refuses
  bool lineForm = false;  // sign text that is not JSON as the line-oriented form
};

void Fail(const std::string& text) {
  std::cerr << text << std::endl;
  SetExitStatus(1);
}

// Says where a file that should be JSON stops being JSON: the reader takes such text for the
// line-oriented form, whose check then fails.
void ExplainNonJson(const std::string& file) {
  std::string bytes;
  QuillmarBasebandSDK::JsonDocument document;
  QuillmarBasebandSDK::JsonSyntaxError syntax;
  if (QuillmarBasebandSDK::IsLineFormName(file) || !ConfigurationReader::ReadFile(file, bytes) ||
      QuillmarBasebandSDK::ParseJsonDocument(bytes, document, &syntax)) {
    return;
  }
  std::cerr << file << " is not valid JSON: " << syntax.Text() << std::endl;
}

void Check(const ConfigOptions& options) {
  ConfigurationReader reader(options.file);
  if (!reader.Load(kCheckChecksum)) {
    ExplainNonJson(options.file);
    return Fail(reader.ErrorText());
  }
  std::cout << reader.Settings().checksumText << std::endl;
  std::string bytes;
  if (ConfigurationReader::ReadFile(options.file, bytes) && !IsUtf8(bytes)) {
    std::cerr << options.file << ": the text is not UTF-8 (a local 8-bit code page?); it is read "
                 "and checked byte for byte, and shown here as if it were Latin-1"
              << std::endl;
  }
}

void Sign(const ConfigOptions& options) {
  const std::string output = options.output.empty() ? options.file : options.output;
  std::string bytes;
  if (!ConfigurationReader::ReadFile(options.file, bytes)) {
    return Fail("quillmar config sign: cannot read " + options.file);
  }
  std::string signedBytes;
  std::string error;
  if (!QuillmarBasebandSDK::SignConfiguration(bytes, options.file, output, options.lineForm,
                                              signedBytes, error)) {
    return Fail("quillmar config sign: " + options.file + ": " + error);
  }
  ConfigurationReader reader(output);
  if (!reader.LoadBytes(signedBytes, kCheckChecksum) && !options.force) {
    return Fail(
        "quillmar config sign: not signed, the configuration is not valid (--force signs "
        "it anyway): " +
        reader.ErrorText());
  }
  std::ofstream file(output, std::ios::binary | std::ios::trunc);
  if (!(file << signedBytes) || !file.flush()) {
    return Fail("quillmar config sign: cannot write " + output);
  }
  std::cout << "signed " << output << std::endl;
}

std::string MetadataText(const ProgramEntry& entry) {
  std::string text;
  for (const auto& [key, field] : entry.metadataFields) {
    text += (text.empty() ? "" : ", ") + key + " -> " + field;
  }
  return text;
}

std::string PayloadRate(const ProgramEntry& entry) {
  return QuillmarBasebandSDK::PayloadRateText(static_cast<int>(entry.payloadSize));
}

std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

// The channel settings of a line-oriented file, when it has them.
void ShowChannelSettings(const QuillmarBasebandSDK::ContentProcessorSettings& settings) {
  const QuillmarBasebandSDK::ChannelSettings& channels = settings.channelSettings;
  if (!channels.present) return;
  std::cout << "Client: " << channels.client << '\n'
            << "Channel: " << channels.channelName << " (connection " << channels.connectionMode
            << ", operation " << channels.operationMode << ", embedding "
            << channels.embeddingMode << ", start delay " << channels.embeddingStartDelay
            << " s)\n"
            << "Default program: " << settings.defaultProgramName << '\n'
            << "Embedder MAC addresses: " << Joined(channels.embedderMacAddresses) << '\n'
            << "Detector MAC addresses: " << Joined(channels.detectorMacAddresses) << '\n';
  for (const auto& channel : channels.channels) {
    std::cout << "Channels: [" << channel.section << "] " << channel.name << ", GD "
              << channel.globalDepth << ", MLD " << channel.maxLocalDepth << '\n';
  }
}

boost::json::value ChannelSettingsJson(const QuillmarBasebandSDK::ContentProcessorSettings& settings) {
  const QuillmarBasebandSDK::ChannelSettings& channels = settings.channelSettings;
  if (!channels.present) return nullptr;
  boost::json::array entries;
  for (const auto& channel : channels.channels) {
    entries.push_back(boost::json::object{{"section", channel.section},
                                          {"name", channel.name},
                                          {"global_depth", channel.globalDepth},
                                          {"max_local_depth", channel.maxLocalDepth}});
  }
  return boost::json::object{
      {"client", channels.client},
      {"connection_mode", channels.connectionMode},
      {"operation_mode", channels.operationMode},
      {"embedding_mode", channels.embeddingMode},
      {"channel_name", channels.channelName},
      {"embedding_start_delay", channels.embeddingStartDelay},
      {"default_program", settings.defaultProgramName},
      {"embedder_mac_addresses", boost::json::value_from(channels.embedderMacAddresses)},
      {"detector_mac_addresses", boost::json::value_from(channels.detectorMacAddresses)},
      {"channels", std::move(entries)}};
}

void ShowTable(const ConfigurationReader& reader) {
  const auto& settings = reader.Settings();
  std::cout << "Configuration: " << reader.Source() << '\n'
            << "Checksum: " << settings.checksumText << '\n'
            << "Shared database: " << (settings.hasSharedDatabase ? settings.sharedDatabase : "")
            << '\n';
  ShowChannelSettings(settings);
  std::cout << std::left << std::setw(6) << "index" << std::setw(24) << "name" << std::setw(17)
            << "content type" << std::setw(24) << "EIDs" << std::setw(8) << "GD" << std::setw(6)
            << "MLD" << std::setw(24) << "payload rate" << "metadata (key -> field name)\n";
  for (std::size_t i = 0; i < settings.programs.size(); ++i) {
    const ProgramEntry& entry = settings.programs[i];
    std::cout << std::setw(6) << i << std::setw(24) << entry.name << std::setw(17)
              << QuillmarBasebandSDK::ContentTypeName(entry.contentType) << std::setw(24)
              << QuillmarBasebandSDK::JoinEids(entry.vwm.eids) << std::setw(8)
              << entry.vwm.globalDepth << std::setw(6) << entry.vwm.maxLocalDepth << std::setw(24)
              << PayloadRate(entry) << MetadataText(entry) << '\n';
  }
  std::cout << std::flush;
}

void ShowJson(const ConfigurationReader& reader) {
  const auto& settings = reader.Settings();
  boost::json::array programs;
  for (std::size_t i = 0; i < settings.programs.size(); ++i) {
    const ProgramEntry& entry = settings.programs[i];
    boost::json::object fields;
    for (const auto& [key, field] : entry.metadataFields) fields[key] = field;
    programs.push_back(boost::json::object{
        {"index", i},
        {"name", entry.name},
        {"content_type", QuillmarBasebandSDK::ContentTypeName(entry.contentType)},
        {"eids", boost::json::value_from(entry.vwm.eids)},
        {"global_depth", entry.vwm.globalDepth},
        {"max_local_depth", entry.vwm.maxLocalDepth},
        {"payload_rate", PayloadRate(entry)},
        {"metadata_fields", std::move(fields)},
    });
  }
  PrintJson(std::cout, boost::json::object{
                           {"configuration", reader.Source()},
                           {"checksum", settings.checksumText},
                           {"shared_database", settings.hasSharedDatabase
                                                   ? boost::json::value(settings.sharedDatabase)
                                                   : boost::json::value(nullptr)},
                           {"programs", std::move(programs)},
                           {"channel_settings", ChannelSettingsJson(settings)},
                       });
}

void Show(const ConfigOptions& options) {
  const std::string file =
      std::filesystem::is_directory(options.file)
          ? QuillmarBasebandSDK::QuillmarBasebandConfigurationState::ConfigFileForRoot(options.file)
          : options.file;
  ConfigurationReader reader(file);
  if (!reader.Load(kCheckChecksum)) return Fail(reader.ErrorText());
  options.json ? ShowJson(reader) : ShowTable(reader);
}

// Runs `action`, turning any exception into a failure: nothing escapes a command.
template <typename Action>
void Guarded(const char* name, Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    Fail(std::string("quillmar config ") + name + ": " + error.what());
  }
}

void AddConfigCommands(CLI::App& app) {
  auto options = std::make_shared<ConfigOptions>();
  CLI::App* config = app.add_subcommand("config", "Check, sign and show configuration files");
  config->require_subcommand(1);

  CLI::App* check = config->add_subcommand("check", "Load FILE with checksum checking on");
  check->add_option("FILE", options->file, "configuration file")->required();
  check->callback([options] { Guarded("check", [&] { Check(*options); }); });

  CLI::App* sign = config->add_subcommand("sign", "Write FILE with its correct checksum");
  sign->add_option("FILE", options->file, "configuration file")->required();
  sign->add_option("-o,--output", options->output, "write here instead of over FILE");
  sign->add_flag("--force", options->force, "sign even a configuration that is not valid");
  sign->add_flag("--line-form", options->lineForm,
                 "sign text that is not JSON as the line-oriented form (.cfg and .ccf files are)");
  sign->callback([options] { Guarded("sign", [&] { Sign(*options); }); });

  CLI::App* show = config->add_subcommand("show", "Show the shared database and the programs");
  show->add_option("ROOT_OR_FILE", options->file,
                   "configuration file, or root folder holding Cfg/QLM_LumensealProp.cfg")
      ->required();
  show->add_flag("--json", options->json, "print as JSON");
  show->callback([options] { Guarded("show", [&] { Show(*options); }); });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddConfigCommands)

}  // namespace Quillmar::Tools
