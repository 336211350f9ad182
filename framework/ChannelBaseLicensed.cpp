#include "ChannelBaseLicensed.h"

#include <cstdlib>

#include "LicenseInvalidatedEvent.h"
#include "LicenseWarningEvent.h"
#include "Logger.h"
#include "PluginRegistry.h"
#include "platform/ReturnAddress.h"

namespace Framework {
namespace {

constexpr int kDefaultDaysLeft = 365;

// 64-bit FNV-1a: a stable seed for a product without a configured one.
std::uint64_t SeedFromName(const std::string& name) {
  std::uint64_t hash = 14695981039346656037ull;
  for (const unsigned char c : name) {
    hash ^= c;
    hash *= 1099511628211ull;
  }
  return hash;
}

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

}  // namespace

Licenser::Licenser(const std::string& productName) {
  const char* seed = Environment("QUILLMAR_LICENSE_SEED");
  const char* daysLeft = Environment("QUILLMAR_LICENSE_DAYS_LEFT");
  SetProperty<std::uint64_t>(
      "Seed", seed != nullptr ? std::strtoull(seed, nullptr, 0) : SeedFromName(productName));
  SetProperty("DaysLeft", daysLeft != nullptr ? std::atoi(daysLeft) : kDefaultDaysLeft);
  SetProperty("Valid", Environment("QUILLMAR_LICENSE_INVALID") == nullptr);
}

ChannelBaseLicensed::ChannelBaseLicensed(const std::string& productName,
                                         const std::vector<std::string>& plugins,
                                         const std::string& version, int checkIntervalMinutes,
                                         const std::string& licenseFile)
    : productName_(productName),
      version_(version),
      checkIntervalMinutes_(checkIntervalMinutes),
      licenseFile_(licenseFile),
      licenser_(productName) {
  const std::vector<std::string> folders = PluginRegistry::SearchPath(QUILLMAR_RETURN_ADDRESS());
  SetPluginFolders(folders);
  for (const std::string& plugin : plugins) PluginRegistry::Instance().LoadPlugin(plugin, folders);
}

ChannelBaseLicensed::~ChannelBaseLicensed() = default;

std::vector<std::string> ChannelBaseLicensed::GetDefaultPlugins() {
  return PluginRegistry::FindPlugins(PluginRegistry::SearchPath(QUILLMAR_RETURN_ADDRESS()));
}

void ChannelBaseLicensed::CreateChannel(std::uint64_t channelIndex) {
  ChannelBase::CreateChannel(channelIndex);
  CheckLicense();
}

bool ChannelBaseLicensed::CheckLicense() {
  if (!licenser_.IsValid()) {
    LicenseInvalidatedEvent event;
    event.SetMessage("The licence of " + productName_ + " " + version_ + " is not valid.");
    licenseInvalidatedSignal_.Raise(event);
    return false;
  }
  if (licenser_.GetDaysLeft() <= Licenser::kWarningDays) {
    LicenseWarningEvent event;
    licenseWarningSignal_.Raise(event);
  }
  return true;
}

}  // namespace Framework
