// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/EncryptedTracks.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "media/Clips.h"
#include "platform/media/source/LocalByteSource.h"

namespace zaffo::media {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string number(uint64_t value, int bytes) {
  std::string text(static_cast<std::size_t>(bytes), '\0');
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit, value >>= 8) {
    *digit = static_cast<char>(value & 0xFF);
  }
  return text;
}

std::string box(const std::string& kind, const std::string& content) {
  return number(content.size() + 8, 4) + kind + content;
}

std::string longBox(const std::string& kind, const std::string& content) {
  return number(1, 4) + kind + number(content.size() + 16, 8) + content;
}

std::string descriptions(const std::string& entries) {
  return box("mdia",
             box("mdhd", "") + box("minf", box("stbl", box("stsd", number(0, 8) + entries))));
}

std::string trackHeader(int id) {
  return box("tkhd", number(0, 12) + number(static_cast<uint64_t>(id), 4) + number(0, 64));
}

std::string track(int id, const std::string& kind) {
  return box("trak", trackHeader(id) + descriptions(box(kind, "...")));
}

class EncryptedTracksTest : public testing::Test {
 protected:
  ~EncryptedTracksTest() override { std::filesystem::remove(path_); }

  std::vector<int> ofBytes(const std::string& bytes) {
    std::ofstream(path_, std::ios::binary) << bytes;
    return ofFile(path_);
  }
  static std::vector<int> ofClip(const std::string& name) { return ofFile(test::clip(name)); }

 private:
  static std::vector<int> ofFile(const std::string& path) {
    auto bytes = LocalByteSource::open(path);
    EXPECT_TRUE(bytes) << path;
    std::vector<int> tracks;
    if (!bytes) return tracks;
    ReadTask task(*std::move(bytes));
    EXPECT_TRUE(task.run([&] { tracks = encryptedTracks(task); }));
    return tracks;
  }

  const std::string path_ = testing::TempDir() + "EncryptedTracks" + std::to_string(getpid());
};

TEST_F(EncryptedTracksTest, AreTheTracksWhoseDescriptionHidesTheCodec) {
  EXPECT_THAT(ofClip("protected.mp4"), ElementsAre(1));
  EXPECT_THAT(ofClip("protected_with_sound.mp4"), ElementsAre(1, 2));
  EXPECT_THAT(ofClip("protected_sound.mp4"), ElementsAre(2));
  for (const char* kind : {"encv", "enca", "drmi", "drms"})
    EXPECT_THAT(ofBytes(box("moov", track(7, "avc1") + track(9, kind))), ElementsAre(9)) << kind;
}

TEST_F(EncryptedTracksTest, AreNotThereInOtherFiles) {
  for (const char* name :
       {"h264_30.mp4", "h264_30_moov_last.mp4", "fragmented.mp4", "h264_pcm.mov",
        "cut_moov_last_5.mp4", "vp9_opus.webm", "audio.wav", "audio.mp3", "text.mp4", "empty.mp4"})
    EXPECT_THAT(ofClip(name), IsEmpty()) << name;
}

TEST_F(EncryptedTracksTest, AreFoundWhateverTheSizesAreWrittenIn) {
  const std::string movie = box("mvhd", "") + track(300, "encv");
  EXPECT_THAT(ofBytes(longBox("mdat", "12345") + longBox("moov", movie)), ElementsAre(300));
  EXPECT_THAT(ofBytes(number(0, 4) + "moov" + movie), ElementsAre(300)) << "to the end of the file";
  const std::string late = box("tkhd", number(1, 1) + number(0, 19) + number(5, 4) + number(0, 64));
  EXPECT_THAT(ofBytes(box("moov", box("trak", late + descriptions(box("encv", ""))))),
              ElementsAre(5));
}

TEST_F(EncryptedTracksTest, AreFoundByAnyOfTheirDescriptions) {
  for (const auto& [first, second] : {std::pair{"avc1", "encv"}, {"encv", "avc1"}}) {
    const auto entries = descriptions(box(first, "...") + box(second, "..."));
    EXPECT_THAT(ofBytes(box("moov", box("trak", trackHeader(1) + entries))), ElementsAre(1));
  }
}

TEST_F(EncryptedTracksTest, AreThoseOfTheFirstHeaderAndWhatIsATrack) {
  EXPECT_THAT(ofBytes(box("moov", track(1, "encv")) + box("moov", track(2, "encv"))),
              ElementsAre(1));
  const std::string like = box("meta", trackHeader(3) + descriptions(box("encv", "...")));
  EXPECT_THAT(ofBytes(box("moov", like)), IsEmpty());
}

TEST_F(EncryptedTracksTest, DamagedBoxesEndTheSearch) {
  const std::string good = track(1, "encv");
  EXPECT_THAT(ofBytes(number(4, 4) + box("moov", good)), IsEmpty());
  EXPECT_THAT(ofBytes(number(1, 4) + "free" + number(15, 8) + box("moov", good)), IsEmpty());
  EXPECT_THAT(ofBytes(number(1, 4) + "free" + number(~0ull, 8) + box("moov", good)), IsEmpty());
  EXPECT_THAT(ofBytes(number(9000, 4) + "moov" + good), IsEmpty());
  EXPECT_THAT(ofBytes(box("moov", good + number(9000, 4) + "trak")), ElementsAre(1));
  EXPECT_THAT(ofBytes(box("moov", good).substr(0, 40)), IsEmpty());
  EXPECT_THAT(ofBytes("moov"), IsEmpty());
  std::string many;
  for (int i = 0; i < 2000; ++i) many += box("free", "");
  EXPECT_THAT(ofBytes(many + box("moov", good)), IsEmpty()) << "nobody walks over those";
}

}  // namespace
}  // namespace zaffo::media
