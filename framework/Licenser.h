// The licence component of a licensed channel: a property store the licence check reads.
//
// Properties: "Seed" (uint64: the watermark seed of this licence), "DaysLeft" (int: days until
// the licence expires), "Valid" (bool).
//
// This is a stand-in for a host's licence manager: the values come from the environment
// (QUILLMAR_LICENSE_SEED, QUILLMAR_LICENSE_DAYS_LEFT, QUILLMAR_LICENSE_INVALID) or from defaults
// (a seed derived from the product name, 365 days, valid), and a host or a test may set them.
#pragma once

#include <cstdint>
#include <string>

#include "PropertyBase.h"

namespace Framework {

class FRAMEWORK_API Licenser : public PropertyBase {
 public:
  // Days before expiry from which the check warns.
  static constexpr int kWarningDays = 30;

  // The licence of `productName`, read from the environment or defaulted.
  explicit Licenser(const std::string& productName);

  std::uint64_t GetSeed() const { return GetProperty<std::uint64_t>("Seed"); }
  int GetDaysLeft() const { return GetProperty<int>("DaysLeft"); }
  bool IsValid() const { return GetProperty<bool>("Valid"); }
};

}  // namespace Framework
