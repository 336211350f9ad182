// A channel whose product must be licensed.
//
// The constructor loads the product's plug-ins and sets up its licence component (Licenser).
// CreateChannel runs the licence check: an invalid licence raises a LicenseInvalidatedEvent, a
// licence that expires within Licenser::kWarningDays raises a LicenseWarningEvent, each on its
// own signal. The check may be run again at any time with CheckLicense. The licence check is a
// stand-in (see Licenser): it decides from the licence component's properties alone.
#pragma once

#include <string>
#include <vector>

#include "ChannelBase.h"
#include "Licenser.h"

namespace Framework {

class FRAMEWORK_API ChannelBaseLicensed : public ChannelBase {
 public:
  // `plugins`: plug-in classes to load now (see GetDefaultPlugins); `checkIntervalMinutes`: how
  // often a host re-runs the licence check; `licenseFile`: the licence to use, empty for the default.
  ChannelBaseLicensed(const std::string& productName, const std::vector<std::string>& plugins,
                      const std::string& version, int checkIntervalMinutes,
                      const std::string& licenseFile);
  ~ChannelBaseLicensed() override;

  // The plug-in classes found in the plug-in path of the calling module.
  static std::vector<std::string> GetDefaultPlugins();

  // The licence component ("Seed", "DaysLeft", "Valid").
  PropertyBase& GetLicenser() { return licenser_; }

  // Signals for LicenseWarningEvent and LicenseInvalidatedEvent.
  EventSignal<EventBase>& GetLicenseWarningSignal() { return licenseWarningSignal_; }
  EventSignal<EventBase>& GetLicenseInvalidatedSignal() { return licenseInvalidatedSignal_; }

  // Checks the licence now and raises the events above; true when the licence is valid.
  bool CheckLicense();

  const std::string& GetProductName() const { return productName_; }
  const std::string& GetProductVersion() const { return version_; }
  int GetCheckIntervalMinutes() const { return checkIntervalMinutes_; }
  const std::string& GetLicenseFile() const { return licenseFile_; }

 protected:
  // The base's CreateChannel, then the licence check.
  void CreateChannel(std::uint64_t channelIndex) override;

 private:
  const std::string productName_;
  const std::string version_;
  const int checkIntervalMinutes_;
  const std::string licenseFile_;
  Licenser licenser_;
  EventSignal<EventBase> licenseWarningSignal_;
  EventSignal<EventBase> licenseInvalidatedSignal_;
};

}  // namespace Framework
