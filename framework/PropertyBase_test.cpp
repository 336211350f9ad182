#include "PropertyBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

namespace Framework {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(PropertyBase, GettersCheckTheTypeTheLastSetterStored) {
  PropertyBase store;
  EXPECT_EQ(nullptr, store.GetProperty<const int*>("Rate")) << "missing: value-initialised";
  store.SetProperty("Rate", 25.0);
  store.SetProperty("Rate", 30);
  EXPECT_EQ(30, store.GetProperty<int>("Rate"));
  EXPECT_THROW(store.GetProperty<double>("Rate"), PropertyTypeError);
  // Types that differ only in width or sign are different types.
  store.SetProperty("Cid", std::uint32_t{5});
  EXPECT_THROW(store.GetProperty<std::uint64_t>("Cid"), PropertyTypeError);
  EXPECT_THAT([&] { store.GetProperty<int>("Cid"); },
              ThrowsMessage<PropertyTypeError>(HasSubstr("Property Cid holds unsigned int")));
}

}  // namespace
}  // namespace Framework
