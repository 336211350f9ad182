#include "ChannelBaseLicensed.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "Frame.h"
#include "LicenseInvalidatedEvent.h"
#include "LicenseWarningEvent.h"
#include "PluginRegistry.h"
#include "ProgressEvent.h"
#include "testing/RecordingLogSink.h"

namespace Framework {
namespace {

// Plug-ins built for these tests live in a folder of their own, named by the build.
class TestChannel : public ChannelBaseLicensed {
 public:
  TestChannel() : ChannelBaseLicensed("TestProduct", {}, "2.0", 60, "") {}
};

class ChannelBaseLicensedTest : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("QUILLMAR_PLUGIN_PATH", TEST_PLUGIN_DIR, 1); }
  void TearDown() override { ::unsetenv("QUILLMAR_PLUGIN_PATH"); }
};

TEST_F(ChannelBaseLicensedTest, CreatesPlugInProcessorsByClassName) {
  TestChannel channel;
  channel.OnCreateChannel(4);
  EXPECT_EQ(4u, channel.GetChannelIndex());

  PropertyBase construction;
  construction.SetProperty("Greeting", "hello");
  ProcessorBase* created = channel.CreateProcessor("EchoTestPlugin", "Echo", construction, false);
  ASSERT_NE(nullptr, created);
  EXPECT_EQ("Echo", created->GetName());
  EXPECT_EQ("hello", created->GetProperty<std::string>("Greeting"));
  EXPECT_EQ(created, channel.GetAlgorithm("Echo"));
  EXPECT_EQ(nullptr, channel.GetAlgorithm("Absent"));
  EXPECT_TRUE(PluginRegistry::Instance().IsRegistered("EchoTestPlugin"));

  // The child reports through its own signal, on the thread that gives it the frame.
  AlgorithmBase* echo = channel.GetAlgorithm("Echo");
  double progress = -1;
  auto connection = echo->GetEventSignal().ConnectFor<ProgressEvent>(
      [&](const ProgressEvent& event) { progress = event.GetProgress(); });
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 16, 16, 25.0));
  frame.SetIndex(41);
  echo->ProcessFrameVolatile(&frame);
  EXPECT_EQ(41.0, progress);
}

TEST_F(ChannelBaseLicensedTest, RefusesWhatItCannotCreate) {
  Testing::ScopedLogRecording log;
  TestChannel channel;
  channel.OnCreateChannel(0);
  PropertyBase construction;
  EXPECT_EQ(nullptr, channel.CreateProcessor("NoSuchPlugin", "X", construction, false));
  EXPECT_TRUE(log->Has(EventLevel::Error, "PluginRegistry: unknown processor class NoSuchPlugin"));

  ASSERT_NE(nullptr, channel.CreateProcessor("EchoTestPlugin", "Echo", construction, false));
  EXPECT_EQ(nullptr, channel.CreateProcessor("EchoTestPlugin", "Echo", construction, false));
  EXPECT_TRUE(log->Has(EventLevel::Error,
                       "ChannelBase::CreateProcessor: instance name Echo is already in use"));

  construction.SetProperty("FailConstruction", true);
  EXPECT_EQ(nullptr, channel.CreateProcessor("EchoTestPlugin", "Broken", construction, false));
  EXPECT_TRUE(log->Has(EventLevel::Error,
                       "PluginRegistry: creating EchoTestPlugin: exception: refused"));
  EXPECT_EQ(nullptr, channel.GetAlgorithm("Broken"));
}

TEST_F(ChannelBaseLicensedTest, FindsThePlugInsOfItsPath) {
  EXPECT_EQ(std::vector<std::string>{"EchoTestPlugin"}, ChannelBaseLicensed::GetDefaultPlugins());
  ::unsetenv("QUILLMAR_PLUGIN_PATH");
  // Without the variable the path is the folder of the asking module: this test's bin folder.
  EXPECT_TRUE(ChannelBaseLicensed::GetDefaultPlugins().empty());
}

TEST_F(ChannelBaseLicensedTest, BaseInitNeedsACreatedChannelAndDrivesManagedChildren) {
  TestChannel channel;
  EXPECT_FALSE(channel.InitProcessor());
  channel.OnCreateChannel(1);
  PropertyBase construction;
  ProcessorBase* managed = channel.CreateProcessor("EchoTestPlugin", "Managed", construction, true);
  ProcessorBase* own = channel.CreateProcessor("EchoTestPlugin", "Own", construction, false);
  EXPECT_TRUE(channel.InitProcessor());
  EXPECT_TRUE(channel.StartProcessor());
  EXPECT_EQ(ProcessorState::Started, managed->GetState());
  EXPECT_EQ(ProcessorState::Created, own->GetState());
  EXPECT_TRUE(channel.StopProcessor());
  EXPECT_EQ(ProcessorState::Stopped, managed->GetState());
  EXPECT_TRUE(channel.DeinitProcessor());
  EXPECT_EQ(ProcessorState::Created, managed->GetState());
}

TEST_F(ChannelBaseLicensedTest, LicenceCheckRaisesWarningAndInvalidation) {
  TestChannel channel;
  int warnings = 0;
  std::string invalidMessage;
  auto onWarning = channel.GetLicenseWarningSignal().ConnectFor<LicenseWarningEvent>(
      [&](const LicenseWarningEvent&) { ++warnings; });
  auto onInvalid = channel.GetLicenseInvalidatedSignal().ConnectFor<LicenseInvalidatedEvent>(
      [&](const LicenseInvalidatedEvent& event) { invalidMessage = event.GetMessage(); });

  channel.OnCreateChannel(0);  // the default licence: valid, a year left
  EXPECT_EQ(0, warnings);
  EXPECT_EQ("", invalidMessage);

  channel.GetLicenser().SetProperty("DaysLeft", Licenser::kWarningDays);
  EXPECT_TRUE(channel.CheckLicense());
  EXPECT_EQ(1, warnings);

  channel.GetLicenser().SetProperty("Valid", false);
  EXPECT_FALSE(channel.CheckLicense());
  EXPECT_EQ("The licence of TestProduct 2.0 is not valid.", invalidMessage);
  EXPECT_EQ(1, warnings);
}

TEST_F(ChannelBaseLicensedTest, SeedIsStableAndConfigurable) {
  const std::uint64_t seed = TestChannel().GetLicenser().GetProperty<std::uint64_t>("Seed");
  EXPECT_NE(0u, seed);
  EXPECT_EQ(seed, TestChannel().GetLicenser().GetProperty<std::uint64_t>("Seed"));
  ::setenv("QUILLMAR_LICENSE_SEED", "0x1234", 1);
  EXPECT_EQ(0x1234u, TestChannel().GetLicenser().GetProperty<std::uint64_t>("Seed"));
  ::setenv("QUILLMAR_LICENSE_INVALID", "1", 1);
  EXPECT_FALSE(TestChannel().CheckLicense());
  ::unsetenv("QUILLMAR_LICENSE_SEED");
  ::unsetenv("QUILLMAR_LICENSE_INVALID");
}

}  // namespace
}  // namespace Framework
