#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/SyntheticSource.h"
#include "tools/Y4mReader.h"
#include "tools/Y4mWriter.h"

namespace Quillmar::Tools {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

TEST(Y4m, FramesSurviveARoundTrip) {
  static const struct {
    const char* spec;
    Framework::PixelLayout layout;
  } cases[] = {
      {"64x36@25", Framework::PixelLayout::Yuv420P8},
      {"34x18@29.97", Framework::PixelLayout::Yuv422P8},
      {"20x16@50", Framework::PixelLayout::Yuv444P8},
  };
  for (const auto& c : cases) {
    const auto spec = SyntheticSource::ParseSpec(c.spec);
    const Framework::VideoFormatInfo format(c.layout, spec.GetWidth(), spec.GetHeight(),
                                            spec.GetFrameRate());
    File file(std::tmpfile());
    Framework::Frame written(format);
    for (int plane = 0; plane < 3; ++plane) {
      for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
        for (int x = 0; x < format.GetPlaneWidth(plane); ++x) {
          written.GetPlane(plane)[y * written.GetPitch(plane) + x] =
              static_cast<std::uint8_t>(plane * 50 + x * 3 + y);
        }
      }
    }
    {
      Y4mWriter writer(file.get(), format);
      writer.Write(written);
      writer.Write(written);
    }
    std::rewind(file.get());
    Y4mReader reader(file.get());
    EXPECT_EQ(format.ToString(), reader.Format().ToString()) << c.spec;
    Framework::Frame read(reader.Format());
    for (int frame = 0; frame < 2; ++frame) {
      ASSERT_TRUE(reader.Next(read)) << c.spec;
      for (int plane = 0; plane < 3; ++plane) {
        for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
          ASSERT_EQ(0, std::memcmp(written.GetPlane(plane) + y * written.GetPitch(plane),
                                   read.GetPlane(plane) + y * read.GetPitch(plane),
                                   format.GetPlaneWidth(plane)))
              << c.spec << " plane " << plane << " row " << y;
        }
      }
    }
    EXPECT_FALSE(reader.Next(read));
  }
}

TEST(Y4m, RefusesWhatItCannotRead) {
  static const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"RIFF....", "not Y4M"},
      {"YUV4MPEG2 W16 F25:1\n", "no height"},
      {"YUV4MPEG2 W16 H16 F25:1 C420p10\n", "10-bit"},
      {"YUV4MPEG2 W16 H16 F25:1 C420jpeg\nFRAME\nshort", "truncated frame"},
      {"YUV4MPEG2 W16 H16 F25:1 C420jpeg\nFRAMX\n", "bad frame header"},
      {"YUV4MPEG2 W16 H16", "header without line end"},
  };
  for (const auto& c : cases) {
    File file(std::tmpfile());
    std::fputs(c.text, file.get());
    std::rewind(file.get());
    EXPECT_THROW(
        {
          Y4mReader reader(file.get());
          Framework::Frame frame(reader.Format());
          while (reader.Next(frame)) {
          }
        },
        std::exception)
        << c.reason;
  }
}

TEST(Y4m, FrameRateParameters) {
  EXPECT_EQ("25:1", Y4mWriter::FrameRateParameter(25.0));
  EXPECT_EQ("30000:1001", Y4mWriter::FrameRateParameter(30000.0 / 1001.0));
  EXPECT_EQ("24000:1001", Y4mWriter::FrameRateParameter(23.976));
  EXPECT_DOUBLE_EQ(30000.0 / 1001.0, Y4mReader::ParseFrameRate("30000:1001"));
  EXPECT_DOUBLE_EQ(50.0, Y4mReader::ParseFrameRate("50"));
}

TEST(SyntheticSource, GivesTheFramesItPromises) {
  SyntheticSource source("320x180@25", 2.0);
  EXPECT_EQ("320x180 yuv420p 25 fps", source.Format().ToString());
  Framework::Frame frame(source.Format());
  Framework::Frame previous(source.Format());
  int frames = 0;
  int changed = 0;
  while (source.Next(frame)) {
    EXPECT_EQ(static_cast<std::uint64_t>(frames), frame.GetIndex());
    for (int y = 0; y < 180; ++y) {
      for (int x = 0; x < 320; ++x) {
        const int luma = frame.GetPlane(0)[y * frame.GetPitch(0) + x];
        ASSERT_GE(luma, 16);
        ASSERT_LE(luma, 235);
      }
    }
    if (frames > 0 && std::memcmp(frame.GetPlane(0), previous.GetPlane(0), 320) != 0) ++changed;
    previous = frame;
    ++frames;
  }
  EXPECT_EQ(50, frames);
  EXPECT_EQ(49, changed);  // the scene moves every frame
  for (const char* bad : {"1920x1080", "1920x1080@0.5", "15x16@25", "axb@25"}) {
    EXPECT_THROW(SyntheticSource::ParseSpec(bad), std::invalid_argument) << bad;
  }
}

}  // namespace
}  // namespace Quillmar::Tools
