#include "PropertyBase.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Framework {
namespace {

// Records every notification together with the value the store holds at that moment.
class NotifyingStore : public PropertyBase {
 public:
  void OnPropertySet(const std::string& name) override {
    notified.push_back(name + "=" + std::to_string(GetProperty<int>(name)));
  }
  std::vector<std::string> notified;
};

TEST(PropertyBase, MissingNamesReadAsValueInitialised) {
  const PropertyBase store;
  EXPECT_EQ(0, store.GetProperty<int>("Missing"));
  EXPECT_EQ(0u, store.GetProperty<std::uint64_t>("Missing"));
  EXPECT_EQ(0.0, store.GetProperty<double>("Missing"));
  EXPECT_FALSE(store.GetProperty<bool>("Missing"));
  EXPECT_EQ("", store.GetProperty<std::string>("Missing"));
  EXPECT_EQ(nullptr, store.GetProperty<const int*>("Missing"));
  EXPECT_TRUE(store.GetProperty<std::vector<unsigned>>("Missing").empty());
  EXPECT_FALSE(store.HasProperty("Missing"));
}

TEST(PropertyBase, SettersReplaceValuesAndGettersCheckTheType) {
  PropertyBase store;
  store.SetProperty("Rate", 25.0);
  store.SetProperty("Cids", std::vector<unsigned>{7, 9});
  store.SetProperty("Name", "plain C string");
  EXPECT_EQ(25.0, store.GetProperty<double>("Rate"));
  EXPECT_EQ((std::vector<unsigned>{7, 9}), store.GetProperty<std::vector<unsigned>>("Cids"));
  EXPECT_EQ("plain C string", store.GetProperty<std::string>("Name"));

  // A setter replaces the value whatever type it had; the old type no longer reads.
  store.SetProperty("Rate", 30);
  EXPECT_EQ(30, store.GetProperty<int>("Rate"));
  EXPECT_THROW(store.GetProperty<double>("Rate"), PropertyTypeError);
  EXPECT_TRUE(store.HasPropertyOfType<int>("Rate"));
  EXPECT_FALSE(store.HasPropertyOfType<double>("Rate"));

  // Types that differ only in width or sign are different types.
  store.SetProperty("Cid", std::uint32_t{5});
  EXPECT_THROW(store.GetProperty<std::uint64_t>("Cid"), PropertyTypeError);
  EXPECT_THROW(store.GetProperty<int>("Cid"), PropertyTypeError);
  try {
    store.GetProperty<std::string>("Cid");
    FAIL() << "a wrong type must throw";
  } catch (const PropertyTypeError& error) {
    EXPECT_NE(std::string::npos, std::string(error.what()).find("Property Cid holds unsigned int"));
  }
  EXPECT_EQ((std::vector<std::string>{"Cid", "Cids", "Name", "Rate"}), store.GetPropertyNames());
}

TEST(PropertyBase, EverySetNotifiesOnceAfterTheValueIsStored) {
  NotifyingStore store;
  store.SetProperty("A", 1);
  store.SetProperty("B", 2);
  store.SetProperty("A", 3);
  EXPECT_EQ((std::vector<std::string>{"A=1", "B=2", "A=3"}), store.notified);
}

TEST(PropertyBase, CopiesAreIndependent) {
  PropertyBase original;
  original.SetProperty("Depth", 3);
  PropertyBase copy = original;
  copy.SetProperty("Depth", 4);
  copy.SetProperty("Extra", true);
  EXPECT_EQ(3, original.GetProperty<int>("Depth"));
  EXPECT_FALSE(original.HasProperty("Extra"));
  original = copy;
  EXPECT_EQ(4, original.GetProperty<int>("Depth"));
}

}  // namespace
}  // namespace Framework
