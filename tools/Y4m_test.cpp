#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "framework/testing/TemporaryFolder.h"
#include "tools/Y4mReader.h"
#include "tools/Y4mWriter.h"

namespace Quillmar::Tools {
namespace {

using Framework::StreamFile;
using Framework::Testing::TemporaryFolder;

// Reads `text`: its header into *format, then the frames of a picture of at most 64 MiB.
void Read(const TemporaryFolder& folder, const std::string& text,
          Framework::VideoFormatInfo* format) {
  StreamFile stream(folder.Write("in.y4m", text), StreamFile::Mode::Read);
  Y4mReader reader(stream);
  *format = reader.Format();
  if (static_cast<std::size_t>(format->GetWidth()) * format->GetHeight() * 3 > 64 << 20) return;
  Framework::Frame frame(*format);
  while (reader.Next(frame)) {
  }
}

TEST(Y4m, FramesAndHeaderSurviveARoundTrip) {
  using Framework::PixelLayout;
  static const struct {
    Framework::VideoFormatInfo format;
    std::vector<std::string> parameters;  // none: the writer's own
  } cases[] = {
      {{PixelLayout::Yuv420P8, 64, 36, 30000.0 / 1001}, {}},
      {{PixelLayout::Yuv422P8, 34, 18, 30000.0 / 1001},
       {"W34", "H18", "F30000:1001", "Ib", "A16:15", "C422", "XCOLORRANGE=FULL"}},
      {{PixelLayout::Yuv444P8, 20, 16, 50.0}, {"C444", "W20", "H16", "F50:1"}},
      {{PixelLayout::Yuv420P8, 16, 16, 25.0}, {"W16", "H16", "F25:1", "C420paldv"}},
  };
  const TemporaryFolder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format.ToString());
    Framework::Frame written(c.format);
    for (std::size_t at = 0; at < written.GetSize(); ++at) written.GetPlane(0)[at] = at * 7 % 251;
    {
      StreamFile out(folder.File("round.y4m"), StreamFile::Mode::Write);
      Y4mWriter writer(out, c.format, c.parameters);
      writer.Write(written);
    }
    StreamFile in(folder.File("round.y4m"), StreamFile::Mode::Read);
    Y4mReader reader(in);
    EXPECT_EQ(c.format.ToString(), reader.Format().ToString());
    EXPECT_EQ(c.parameters.empty() ? Y4mWriter::DefaultParameters(c.format) : c.parameters,
              reader.Y4mParameters());
    Framework::Frame read(reader.Format());
    ASSERT_TRUE(reader.Next(read));
    for (int plane = 0; plane < 3; ++plane) {
      for (int y = 0; y < c.format.GetPlaneHeight(plane); ++y) {
        ASSERT_EQ(0, std::memcmp(written.GetPlane(plane) + y * written.GetPitch(plane),
                                 read.GetPlane(plane) + y * read.GetPitch(plane),
                                 c.format.GetPlaneWidth(plane))) << plane << ", " << y;
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
  const TemporaryFolder folder;
  Framework::VideoFormatInfo format;
  for (const auto& c : cases) {
    EXPECT_THAT([&] { Read(folder, c.text, &format); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(c.says)));
  }
  EXPECT_EQ("a\\x00\\xFF\\x5Cb...", Y4mReader::Printable(std::string("a\0\xFF\\bc", 6), 5));
}

// The largest allocation while `recording`: AddressSanitizer's allocator hooks (its interface,
// for which GCC ships no header) record it in the sanitizer build; other builds record nothing.
bool recording = false;
std::size_t largest = 0;
#if defined(__SANITIZE_ADDRESS__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*onMalloc)(const volatile void*, std::size_t), void (*onFree)(const volatile void*));
void OnMalloc(const volatile void*, std::size_t size) {
  if (recording) largest = std::max(largest, size);
}
void OnFree(const volatile void*) {}
[[maybe_unused]] const int kHooks = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
#endif

// Hostile headers: never a crash, only std::runtime_error, and no allocation larger than the
// picture the header declares plus 64 MiB.
TEST(Y4m, MutatedHeadersAreReadOrRefusedWithinTheirDeclaredSize) {
  const std::string valid = "YUV4MPEG2 W64 H36 F25:1 It A1:1 C420mpeg2 XCOLORRANGE=FULL\n";
  const std::string pieces[] = {"W",   "H",   "F",   "C",   ":",     " ",     "\n",   "0",
                                "-1",  "420", "444", "\xFF", "16384", "FRAME", {'\0'},
                                "99999999999999999999"};
  std::mt19937 random(20261123);
  const TemporaryFolder folder;
  for (int round = 0; round < 1000; ++round) {
    std::string header = valid;
    for (int edit = 1 + static_cast<int>(random() % 4); edit > 0; --edit) {
      const std::size_t at = random() % (header.size() + 1);
      const auto choice = random() % 3;
      if (choice == 0) header.insert(at, pieces[random() % std::size(pieces)]);
      if (choice == 1) header.erase(at, random() % 8);
      if (choice == 2 && at < header.size()) header[at] = static_cast<char>(random());
    }
    SCOPED_TRACE(Y4mReader::Printable(header, 200));
    largest = 0;
    recording = true;
    Framework::VideoFormatInfo format;
    try {
      Read(folder, header + "FRAME\n" + std::string(3000, 'x'), &format);
    } catch (const std::runtime_error&) {
    }
    EXPECT_LE(std::max(format.GetWidth(), format.GetHeight()), Y4mReader::kMaxSide);
    recording = false;
    EXPECT_LE(largest, (64u << 20) + std::size_t{3} * format.GetWidth() * format.GetHeight());
  }
}

TEST(Y4m, FrameRateParameters) {
  EXPECT_EQ("25:1", Y4mWriter::FrameRateParameter(25.0));
  EXPECT_EQ("24000:1001", Y4mWriter::FrameRateParameter(23.976));
  for (const char* unusable : {"50", "0:0", "25:0", "x:1", "25:1x", "-25:1"}) {
    EXPECT_EQ(0.0, Y4mReader::ParseFrameRate(unusable)) << unusable;
  }
}

}  // namespace
}  // namespace Quillmar::Tools
