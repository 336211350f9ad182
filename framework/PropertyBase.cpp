#include "PropertyBase.h"

#include <boost/core/demangle.hpp>

namespace Framework {

PropertyTypeError::PropertyTypeError(const std::string& name, const std::string& expectedType,
                                     const std::string& storedType)
    : std::logic_error("Property " + name + " holds " + storedType + ", not " + expectedType) {}

void PropertyBase::OnPropertySet(const std::string&) {}

void PropertyBase::SetProperty(const std::string& name, const char* value) {
  SetProperty(name, std::string(value != nullptr ? value : ""));
}

bool PropertyBase::HasProperty(const std::string& name) const {
  return properties_.count(name) != 0;
}

std::vector<std::string> PropertyBase::GetPropertyNames() const {
  std::vector<std::string> names;
  names.reserve(properties_.size());
  for (const auto& entry : properties_) names.push_back(entry.first);
  return names;
}

void PropertyBase::ThrowTypeError(const std::string& name, const boost::any& stored,
                                  const std::type_info& expected) {
  throw PropertyTypeError(name, boost::core::demangle(expected.name()),
                          boost::core::demangle(stored.type().name()));
}

}  // namespace Framework
