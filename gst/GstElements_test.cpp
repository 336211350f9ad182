// quillmarembed and quillmardetect as GStreamer runs them: a harness plays the host around one
// element, pipelines run from their launch lines. The elements are linked into this test and
// registered for this process, so that they run under the sanitizers without GStreamer's plug-in
// scanner; the other elements come from the installed GStreamer plug-ins.
#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "framework/testing/TemporaryFolder.h"
#include "gst/QuillmarElements.h"
#include "tools/testing/ToolRun.h"

// GLib and GStreamer keep their type system, registry and the plug-ins they load for the life of
// the process: the leak checker is told so, and still sees every allocation of ours.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libglib-2.0.so\nleak:libgobject-2.0.so\nleak:libgstreamer-1.0.so\n"
         "leak:libgstbase-1.0.so\nleak:libgstvideo-1.0.so\nleak:libgstpbutils-1.0.so\n"
         "leak:libgstcheck-1.0.so\nleak:/gstreamer-1.0/\nleak:libx264\nleak:libav\n";
}

namespace Quillmar::Gst {
namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 320;
constexpr int kHeight = 180;
constexpr GstClockTime kFrameTime = GST_SECOND / 25;

// Every bus message of a structure named `name` that `bus` holds.
std::vector<GstStructure*> Messages(GstBus* bus, const char* name) {
  std::vector<GstStructure*> found;
  while (GstMessage* message = gst_bus_pop(bus)) {
    const GstStructure* structure = gst_message_get_structure(message);
    if (structure != nullptr && gst_structure_has_name(structure, name)) {
      found.push_back(gst_structure_copy(structure));
    }
    gst_message_unref(message);
  }
  return found;
}

class GstElements : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // A registry of its own keeps the test apart from the user's.
    const std::string registry = std::string(std::getenv("QUILLMAR_BUILD_DIR")) + "/gst-registry.bin";
    ::setenv("GST_REGISTRY", registry.c_str(), 1);
    gst_init(nullptr, nullptr);
    RegisterElements(nullptr);
  }

  // Plays `launch` to its end and returns the structures of its element messages.
  std::vector<GstStructure*> Run(const std::string& launch) {
    GstElement* pipeline = gst_parse_launch(launch.c_str(), nullptr);
    gst_element_set_bus(pipeline, bus_);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    std::vector<GstStructure*> found;
    for (;;) {
      GstMessage* message = gst_bus_timed_pop(bus_, 60 * GST_SECOND);
      EXPECT_NE(nullptr, message) << "no end within 60 s: " << launch;
      if (message == nullptr) break;
      const GstMessageType type = GST_MESSAGE_TYPE(message);
      EXPECT_NE(GST_MESSAGE_ERROR, type) << launch;
      if (type == GST_MESSAGE_ELEMENT) found.push_back(gst_structure_copy(gst_message_get_structure(message)));
      gst_message_unref(message);
      if (type == GST_MESSAGE_EOS || type == GST_MESSAGE_ERROR) break;
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return found;
  }

  void SetUp() override {
    fs::copy_file(fs::path(QUILLMAR_SOURCE_DIR) / "examples/demo.json", folder_.Path() / "channel.json");
  }

  // A harness around `launch`, its messages on `bus_`, its caps those of `format` frames.
  GstHarness* Harness(const std::string& launch, const char* format) {
    GstHarness* harness = gst_harness_new_parse(launch.c_str());
    gst_element_set_bus(harness->element, bus_);
    gst_harness_set_src_caps_str(harness, ("video/x-raw, format=" + std::string(format) +
                                           ", width=320, height=180, framerate=25/1")
                                              .c_str());
    return harness;
  }

  std::string Embedder() const {
    return "quillmarembed config-file=" + (folder_.Path() / "channel.json").string() +
           " program=Demo duration=10 metadata=\"meta, itemid=(string)GST-1\"";
  }

  // A frame of `format` whose luma is a moving texture and whose other bytes are 128.
  static GstBuffer* Frame(const char* format, int index) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, gst_video_format_from_string(format), kWidth, kHeight);
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    std::memset(map.data, 128, map.size);
    for (int y = 0; y < kHeight; ++y) {
      guint8* row = map.data + GST_VIDEO_INFO_COMP_OFFSET(&info, 0) + y * GST_VIDEO_INFO_COMP_STRIDE(&info, 0);
      for (int x = 0; x < kWidth; ++x) row[x] = static_cast<guint8>(60 + ((x + 3 * index) * 7 ^ y * 5) % 120);
    }
    gst_buffer_unmap(buffer, &map);
    GST_BUFFER_PTS(buffer) = index * kFrameTime;
    GST_BUFFER_DURATION(buffer) = kFrameTime;
    return buffer;
  }

  std::vector<std::string> Records() const {
    std::vector<std::string> records;
    std::ifstream file(folder_.Path() / "Logs/EncodationLog.jsonl");
    for (std::string line; std::getline(file, line);) records.push_back(line);
    return records;
  }

  Framework::Testing::TemporaryFolder folder_;
  GstBus* bus_ = gst_bus_new();
};

// Every format: the luma is marked in place, the rest is left as it was, and EOS closes the
// session: the record written, the slot finalised.
TEST_F(GstElements, EveryFormatIsMarkedInPlaceAndEosClosesTheSession) {
  for (const char* format : {"I420", "YV12", "NV12", "Y42B", "Y444", "GRAY8"}) {
    SCOPED_TRACE(format);
    fs::remove_all(folder_.Path() / "Logs");
    GstHarness* harness = Harness(Embedder(), format);
    int changed = 0;
    for (int index = 0; index < 50; ++index) {
      GstBuffer* input = Frame(format, index);
      GstBuffer* expected = gst_buffer_copy_deep(input);
      ASSERT_EQ(GST_FLOW_OK, gst_harness_push(harness, input));
      GstBuffer* output = gst_harness_pull(harness);
      GstMapInfo in;
      GstMapInfo out;
      gst_buffer_map(expected, &in, GST_MAP_READ);
      gst_buffer_map(output, &out, GST_MAP_READ);
      ASSERT_EQ(in.size, out.size);
      const std::size_t luma = kWidth * kHeight;
      changed += std::memcmp(in.data, out.data, luma) != 0;
      EXPECT_EQ(0, std::memcmp(in.data + luma, out.data + luma, in.size - luma)) << "beyond luma";
      gst_buffer_unmap(expected, &in);
      gst_buffer_unmap(output, &out);
      gst_buffer_unref(expected);
      gst_buffer_unref(output);
    }
    EXPECT_EQ(50, changed);
    EXPECT_TRUE(gst_harness_push_event(harness, gst_event_new_eos()));
    const auto sessions = Messages(bus_, "quillmar-session");
    ASSERT_EQ(1u, sessions.size());
    guint64 frames = 0;
    EXPECT_TRUE(gst_structure_get_uint64(sessions[0], "embedded-frames", &frames));
    EXPECT_EQ(50u, frames);
    gst_structure_free(sessions[0]);
    const auto records = Records();
    ASSERT_EQ(1u, records.size());
    const auto record = boost::json::parse(records[0]);
    EXPECT_EQ("GST-1", record.at("Metadata").at("itemid"));
    EXPECT_EQ(2, record.at("EmbeddedDurationInSeconds").to_number<int>());
    gst_harness_teardown(harness);
  }
}

// A configuration that cannot be used stops the stream with an error that says why; nothing is
// reserved.
TEST_F(GstElements, AnUnusableConfigurationPostsAnErrorAndReservesNothing) {
  static const struct {
    std::string properties;
    const char* says;
  } cases[] = {
      {"config-file=absent.json program=Demo", "absent.json not found"},
      {"program=Nope", "program Nope is not in"},
  };
  for (const auto& c : cases) {
    GstHarness* harness =
        Harness("quillmarembed config-file=" + (folder_.Path() / "channel.json").string() + " " + c.properties, "I420");
    EXPECT_EQ(GST_FLOW_ERROR, gst_harness_push(harness, Frame("I420", 0)));
    GstMessage* error = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
    ASSERT_NE(nullptr, error);
    GError* gerror = nullptr;
    gst_message_parse_error(error, &gerror, nullptr);
    EXPECT_NE(nullptr, std::strstr(gerror->message, c.says)) << gerror->message;
    g_error_free(gerror);
    gst_message_unref(error);
    gst_harness_teardown(harness);
    EXPECT_FALSE(fs::exists(folder_.Path() / "quillmar-demo-timeslots.db"));
  }
}

// A pipeline torn down in the middle of the stream, without EOS, still finalises its slot and
// writes its record.
TEST_F(GstElements, APipelineStoppedMidStreamClosesItsSession) {
  GstElement* pipeline = gst_parse_launch(
      ("videotestsrc is-live=true pattern=ball ! video/x-raw,width=320,height=180,framerate=25/1 ! " +
       Embedder() + " duration=0 ! fakesink sync=false")
          .c_str(),
      nullptr);
  gst_element_set_bus(pipeline, bus_);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstMessage* started = gst_bus_timed_pop_filtered(bus_, 10 * GST_SECOND, GST_MESSAGE_ELEMENT);
  ASSERT_NE(nullptr, started) << "no embedding report within 10 s";
  gst_message_unref(started);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  EXPECT_EQ(1u, Records().size());
  const auto shown =
      Quillmar::Testing::RunQuillmar("db show quillmar-demo-timeslots.db --json", folder_.Path());
  const boost::json::value rows = boost::json::parse(shown.out);
  for (const auto& row : rows.at("cids").as_array()) {
    EXPECT_TRUE(row.at("locked_till").is_null()) << shown.out;
  }
}

// Marked by one pipeline, through x264 and MP4, read back by another: the detector element posts
// the CID and the times of the slot the session reserved; an embedder given the marked video
// sees the prior watermark.
TEST_F(GstElements, WhatIsEmbeddedThroughH264IsDetectedDownstream) {
  const std::string mp4 = (folder_.Path() / "marked.mp4").string();
  const auto embedded = Run("videotestsrc num-buffers=150 pattern=smpte ! "
                            "video/x-raw,width=320,height=180,framerate=25/1 ! " +
                            Embedder() + " ! x264enc ! mp4mux ! filesink location=" + mp4);
  guint cid = 0;
  std::string start;
  for (GstStructure* message : embedded) {
    if (gst_structure_has_name(message, "quillmar-session")) {
      gst_structure_get_uint(message, "cid", &cid);
      start = gst_structure_get_string(message, "start");
    }
    gst_structure_free(message);
  }
  ASSERT_NE(0u, cid);

  std::vector<std::string> times;
  for (GstStructure* message :
       Run("filesrc location=" + mp4 + " ! decodebin ! videoconvert ! quillmardetect ! fakesink")) {
    if (gst_structure_has_name(message, "quillmar-detection")) {
      guint64 found = 0;
      gst_structure_get_uint64(message, "cid", &found);
      EXPECT_EQ(cid, found);
      times.emplace_back(gst_structure_get_string(message, "time"));
    }
    gst_structure_free(message);
  }
  ASSERT_GE(times.size(), 3u);
  EXPECT_EQ(start.substr(0, 19) + "Z", times.front());
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
}

}  // namespace
}  // namespace Quillmar::Gst
