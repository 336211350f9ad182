#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>

#include "framework/testing/TemporaryFolder.h"
#include "tools/SyntheticSource.h"
#include "tools/Y4mReader.h"
#include "tools/Y4mWriter.h"

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's allocator interface (GCC ships no header for it).
extern "C" {
std::size_t __sanitizer_get_allocated_size(const volatile void* pointer);
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*));
}
#endif

namespace Quillmar::Tools {
namespace {

using Framework::StreamFile;

// Reads every frame of the Y4M text `text`; what the reader throws leaves.
std::uint64_t ReadAll(const Framework::Testing::TemporaryFolder& folder, const std::string& text) {
  StreamFile stream(folder.Write("in.y4m", text), StreamFile::Mode::Read);
  Y4mReader reader(stream);
  Framework::Frame frame(reader.Format());
  std::uint64_t frames = 0;
  while (reader.Next(frame)) ++frames;
  return frames;
}

TEST(Y4m, FramesAndHeaderSurviveARoundTrip) {
  static const struct {
    const char* spec;
    Framework::PixelLayout layout;
    std::vector<std::string> parameters;  // none: the writer's own
  } cases[] = {
      {"64x36@25", Framework::PixelLayout::Yuv420P8, {}},
      {"34x18@29.97",
       Framework::PixelLayout::Yuv422P8,
       {"W34", "H18", "F30000:1001", "Ib", "A16:15", "C422", "XCOLORRANGE=FULL"}},
      {"20x16@50", Framework::PixelLayout::Yuv444P8, {"C444", "W20", "H16", "F50:1"}},
  };
  const Framework::Testing::TemporaryFolder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    const auto spec = SyntheticSource::ParseSpec(c.spec);
    const Framework::VideoFormatInfo format(c.layout, spec.GetWidth(), spec.GetHeight(),
                                            spec.GetFrameRate());
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
      StreamFile out(folder.File("round.y4m"), StreamFile::Mode::Write);
      Y4mWriter writer(out, format, c.parameters);
      writer.Write(written);
      writer.Write(written);
    }
    StreamFile in(folder.File("round.y4m"), StreamFile::Mode::Read);
    Y4mReader reader(in);
    EXPECT_EQ(format.ToString(), reader.Format().ToString());
    EXPECT_EQ(c.parameters.empty() ? Y4mWriter::DefaultParameters(format) : c.parameters,
              reader.Y4mParameters());
    EXPECT_EQ(2u, reader.ExpectedFrames());
    Framework::Frame read(reader.Format());
    for (int frame = 0; frame < 2; ++frame) {
      ASSERT_TRUE(reader.Next(read));
      for (int plane = 0; plane < 3; ++plane) {
        for (int y = 0; y < format.GetPlaneHeight(plane); ++y) {
          ASSERT_EQ(0, std::memcmp(written.GetPlane(plane) + y * written.GetPitch(plane),
                                   read.GetPlane(plane) + y * read.GetPitch(plane),
                                   format.GetPlaneWidth(plane)))
              << "plane " << plane << " row " << y;
        }
      }
    }
    EXPECT_FALSE(reader.Next(read));
  }
}

TEST(Y4m, RefusesWhatItCannotReadAndSaysWhy) {
  static const struct {
    std::string text;
    const char* says;
  } cases[] = {
      {"YUV4MPEG2 W16 F25:1\n", "lacks a picture size"},
      {"YUV4MPEG2 W16 H16 F25:1 C420p10\n", "C420p10 is not supported"},
      {"YUV4MPEG2 W16 H16 F25:1 C420jpeg\nFRAME\nshort", "ends inside a frame"},
      {"YUV4MPEG2 W16 H16 F25:1 C420jpeg\nFRAMX\n", "frame header expected, found \"FRAMX\""},
      {"YUV4MPEG2 W16 H16 F25:1 X" + std::string(5000, 'a') + "\n", "longer than 4096 bytes"},
      {"YUV4MPEG2 W16 H16 F25:1\nFRAME" + std::string(5000, '\xFF'), "longer than 4096 bytes"},
      {"YUV4MPEG2 W16 H-16 F25:1\n", "H-16 is not a whole number from 1 to 16384"},
      {"YUV4MPEG2 W16 H16 F25\n", "lacks a frame rate"},
      {"", "is empty"},
  };
  const Framework::Testing::TemporaryFolder folder;
  for (const auto& c : cases) {
    try {
      ReadAll(folder, c.text);
      ADD_FAILURE() << "read " << c.says;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string::npos, std::string(error.what()).find(c.says)) << error.what();
    }
  }
  EXPECT_EQ("a\\x00\\xFF\\x5Cb...", Y4mReader::Printable(std::string("a\0\xFF\\bc", 6), 5));
}

#if defined(__SANITIZE_ADDRESS__)
// The largest number of bytes allocated at once while the hooks were on.
std::int64_t allocated = 0;
std::int64_t peak = 0;
void OnMalloc(const volatile void*, std::size_t size) {
  allocated += static_cast<std::int64_t>(size);
  peak = std::max(peak, allocated);
}
void OnFree(const volatile void* pointer) {
  allocated -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(pointer));
}
#endif

// Hostile headers: never a crash, only std::runtime_error, and never more memory than the
// picture the header declares plus 64 MiB.
TEST(Y4m, MutatedHeadersAreReadOrRefusedWithinTheirDeclaredSize) {
  const std::string valid = "YUV4MPEG2 W64 H36 F25:1 It A1:1 C420mpeg2 XCOLORRANGE=FULL\n";
  const std::string pieces[] = {"W",
                                "H",
                                "F",
                                "C",
                                ":",
                                " ",
                                "\n",
                                "99999999999999999999",
                                "16384",
                                "0",
                                "-1",
                                "420",
                                "444",
                                "\xFF",
                                std::string(1, '\0'),
                                "FRAME"};
  std::mt19937 random(20261123);
  const Framework::Testing::TemporaryFolder folder;
  for (int round = 0; round < 1000; ++round) {
    std::string header = valid;
    for (int edit = 1 + static_cast<int>(random() % 4); edit > 0; --edit) {
      const std::size_t at = random() % (header.size() + 1);
      switch (random() % 3) {
        case 0:
          header.insert(at, pieces[random() % std::size(pieces)]);
          break;
        case 1:
          header.erase(at, random() % 8);
          break;
        default:
          if (at < header.size()) header[at] = static_cast<char>(random());
          break;
      }
    }
    SCOPED_TRACE(Y4mReader::Printable(header, 200));
#if defined(__SANITIZE_ADDRESS__)
    allocated = peak = 0;
    __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
#endif
    std::size_t declared = 0;
    try {
      StreamFile stream(folder.Write("in.y4m", header + "FRAME\n" + std::string(3000, 'x')),
                        StreamFile::Mode::Read);
      Y4mReader reader(stream);
      const auto& format = reader.Format();
      ASSERT_TRUE(format.GetWidth() <= Y4mReader::kMaxSide &&
                  format.GetHeight() <= Y4mReader::kMaxSide);
      ASSERT_GT(format.GetFrameRate(), 0.0);
      declared = static_cast<std::size_t>(format.GetWidth()) * format.GetHeight() * 3;
      if (declared <= 64 << 20) {
        Framework::Frame frame(format);
        while (reader.Next(frame)) {
        }
      }
    } catch (const std::runtime_error&) {
    }
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_install_malloc_and_free_hooks(nullptr, nullptr);
    EXPECT_LE(peak, static_cast<std::int64_t>(declared + (64u << 20)));
#endif
  }
}

TEST(Y4m, FrameRateParameters) {
  EXPECT_EQ("25:1", Y4mWriter::FrameRateParameter(25.0));
  EXPECT_EQ("30000:1001", Y4mWriter::FrameRateParameter(30000.0 / 1001.0));
  EXPECT_EQ("24000:1001", Y4mWriter::FrameRateParameter(23.976));
  EXPECT_DOUBLE_EQ(30000.0 / 1001.0, Y4mReader::ParseFrameRate("30000:1001"));
  for (const char* unusable : {"50", "0:0", "25:0", "x:1", "25:1x", "-25:1"}) {
    EXPECT_EQ(0.0, Y4mReader::ParseFrameRate(unusable)) << unusable;
  }
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
    const auto* luma = frame.GetPlane(0);
    EXPECT_TRUE(std::all_of(luma, luma + 320, [](std::uint8_t y) { return y >= 16 && y <= 235; }));
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
