// A store of named, dynamically typed values: the framework's property store.
//
// Every typed property of a processor, a channel or an event record is one entry, keyed by its
// name. A setter replaces the entry and then calls OnPropertySet(name), so a derived class can
// react to changes. Reading a name that was never set yields a value-initialised result (0, false,
// empty, null). Reading a name that holds another type throws PropertyTypeError: a framework
// error for the caller's own code, which every exported interface catches before it returns.
//
// Not thread-safe: a store is read and written by one thread at a time. Copies copy the store.
#pragma once

#include <boost/any.hpp>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Export.h"

namespace Framework {

// Raised by a typed getter whose property holds a value of another type.
class FRAMEWORK_API PropertyTypeError : public std::logic_error {
 public:
  PropertyTypeError(const std::string& name, const std::string& expectedType,
                    const std::string& storedType);
};

class FRAMEWORK_API PropertyBase {
 public:
  PropertyBase() = default;
  virtual ~PropertyBase() = default;
  PropertyBase(const PropertyBase&) = default;
  PropertyBase& operator=(const PropertyBase&) = default;

  // Called after a setter replaced the value of `name`. Optional; the default does nothing.
  virtual void OnPropertySet(const std::string& name);

  // The value of `name` as T: T{} when absent, PropertyTypeError when it holds another type.
  template <typename T>
  T GetProperty(const std::string& name) const {
    const auto entry = properties_.find(name);
    if (entry == properties_.end()) return T{};
    const T* value = boost::any_cast<T>(&entry->second);
    if (value == nullptr) ThrowTypeError(name, entry->second, typeid(T));
    return *value;
  }

  // Replaces the value of `name` with `value`, then calls OnPropertySet(name).
  template <typename T>
  void SetProperty(const std::string& name, T value) {
    properties_[name] = std::move(value);
    OnPropertySet(name);
  }

  // Stores a C string as a std::string.
  void SetProperty(const std::string& name, const char* value);

  // True when `name` holds a value.
  bool HasProperty(const std::string& name) const;

  // True when `name` holds a value of type T.
  template <typename T>
  bool HasPropertyOfType(const std::string& name) const {
    const auto entry = properties_.find(name);
    return entry != properties_.end() && boost::any_cast<T>(&entry->second) != nullptr;
  }

  // The names that hold a value, in ascending order.
  std::vector<std::string> GetPropertyNames() const;

 private:
  [[noreturn]] static void ThrowTypeError(const std::string& name, const boost::any& stored,
                                          const std::type_info& expected);

  std::map<std::string, boost::any> properties_;
};

}  // namespace Framework
