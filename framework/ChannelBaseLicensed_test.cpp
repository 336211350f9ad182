#include "ChannelBaseLicensed.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "LicenseWarningEvent.h"
#include "testing/RecordingLogSink.h"

namespace Framework {
namespace {

// Plug-ins built for these tests live in a folder of their own, named by the build.
class ChannelBaseLicensedTest : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("QUILLMAR_PLUGIN_PATH", TEST_PLUGIN_DIR, 1); }
  void TearDown() override { ::unsetenv("QUILLMAR_PLUGIN_PATH"); }
};

TEST_F(ChannelBaseLicensedTest, CreatesThePlugInsOfItsPathByClassNameAndDrivesManagedOnes) {
  Testing::ScopedLogRecording log;
  ChannelBaseLicensed channel("TestProduct", {}, "2.0", 60, "");
  EXPECT_FALSE(channel.InitProcessor()) << "not before the channel is created";
  channel.OnCreateChannel(4);
  PropertyBase construction;
  ProcessorBase* managed = channel.CreateProcessor("EchoTestPlugin", "Managed", construction, true);
  ProcessorBase* own = channel.CreateProcessor("EchoTestPlugin", "Own", construction, false);
  ASSERT_NE(nullptr, managed);
  ASSERT_EQ(own, channel.GetAlgorithm("Own"));
  EXPECT_TRUE(channel.InitProcessor());
  EXPECT_TRUE(channel.StartProcessor());
  EXPECT_EQ(ProcessorState::Started, managed->GetState());
  EXPECT_EQ(ProcessorState::Created, own->GetState());
  EXPECT_TRUE(channel.StopProcessor());
  EXPECT_EQ(ProcessorState::Stopped, managed->GetState());
  EXPECT_TRUE(channel.DeinitProcessor());
  EXPECT_EQ(nullptr, channel.CreateProcessor("NoSuchPlugin", "X", construction, false));
  EXPECT_EQ(nullptr, channel.CreateProcessor("EchoTestPlugin", "Own", construction, false));
  construction.SetProperty("FailConstruction", true);
  EXPECT_EQ(nullptr, channel.CreateProcessor("EchoTestPlugin", "Broken", construction, false));
  EXPECT_EQ(nullptr, channel.GetAlgorithm("Broken"));
  for (const char* error : {"PluginRegistry: unknown processor class NoSuchPlugin",
                            "ChannelBase::CreateProcessor: instance name Own is already in use",
                            "PluginRegistry: creating EchoTestPlugin: exception: refused"}) {
    EXPECT_TRUE(log->Has(EventLevel::Error, error)) << error;
  }

  EXPECT_EQ(std::vector<std::string>{"EchoTestPlugin"}, ChannelBaseLicensed::GetDefaultPlugins());
  ::unsetenv("QUILLMAR_PLUGIN_PATH");
  // Without the variable the path is the folder of the asking module: this test's bin folder.
  EXPECT_TRUE(ChannelBaseLicensed::GetDefaultPlugins().empty());
}

// The channel tests show both licence events reaching a host; here, where the warning begins.
TEST_F(ChannelBaseLicensedTest, LicenceCheckWarnsFromTheLastWarningDayOn) {
  ChannelBaseLicensed channel("TestProduct", {}, "2.0", 60, "");
  int warnings = 0;
  auto onWarning = channel.GetLicenseWarningSignal().ConnectFor<LicenseWarningEvent>(
      [&](const LicenseWarningEvent&) { ++warnings; });
  channel.GetLicenser().SetProperty("DaysLeft", Licenser::kWarningDays + 1);
  EXPECT_TRUE(channel.CheckLicense());
  channel.GetLicenser().SetProperty("DaysLeft", Licenser::kWarningDays);
  EXPECT_TRUE(channel.CheckLicense());
  EXPECT_EQ(1, warnings);
  // The environment may name the seed.
  ::setenv("QUILLMAR_LICENSE_SEED", "0x1234", 1);
  EXPECT_EQ(0x1234u, Licenser("TestProduct").GetSeed());
  ::unsetenv("QUILLMAR_LICENSE_SEED");
}

}  // namespace
}  // namespace Framework
