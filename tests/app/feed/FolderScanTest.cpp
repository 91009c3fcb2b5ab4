#include "feed/FolderScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "feed/TemporaryFolder.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> namesOf(const std::vector<std::string>& inputs) {
  const auto videos = collectVideos(inputs);
  std::vector<std::string> names;
  if (const auto* wrong = std::get_if<std::string>(&videos)) return {"error: " + *wrong};
  for (const auto& url : std::get<URLs>(videos)) names.push_back(url->lastPathComponent());
  return names;
}

class FolderScanTest : public testing::Test {
 protected:
  void makeFile(const std::string& name) const { std::ofstream(folder.file(name)) << "x"; }
  const TemporaryFolder folder;
};

TEST_F(FolderScanTest, AFolderGivesItsVideosByName) {
  for (const char* name : {"b.mp4", "a.webm", "c.MKV"}) makeFile(name);
  EXPECT_THAT(namesOf({folder.path()}), ElementsAre("a.webm", "b.mp4", "c.MKV"));
}

TEST_F(FolderScanTest, AFoldersOtherFilesAndFoldersAreLeftOut) {
  for (const char* name : {"a.mp4", ".hidden.mp4", "notes.txt", "list.m3u8", "mp4"}) makeFile(name);
  std::filesystem::create_directory(folder.file("folder.mp4"));
  EXPECT_THAT(namesOf({folder.path()}), ElementsAre("a.mp4"));
}

TEST_F(FolderScanTest, InputsKeepTheirOrderAndMayRepeat) {
  makeFile("a.mp4");
  EXPECT_THAT(namesOf({"z.mp4", folder.path(), "z.mp4", "y"}),
              ElementsAre("z.mp4", "a.mp4", "z.mp4", "y"));
}

TEST_F(FolderScanTest, AFileThatIsMissingStillHasItsPage) {
  EXPECT_THAT(namesOf({folder.file("missing.mp4")}), ElementsAre("missing.mp4"));
}

TEST_F(FolderScanTest, AddressesOfKnownKindsAreTaken) {
  EXPECT_THAT(
      namesOf({"https://example.com/a%20b.mp4", "HTTP://example.com/c.mp4", "file:///d.mp4"}),
      ElementsAre("a b.mp4", "c.mp4", "d.mp4"));
}

TEST_F(FolderScanTest, AnAddressOfNoKnownKindIsAnError) {
  EXPECT_THAT(namesOf({"ftp://example.com/a.mp4"}),
              ElementsAre(HasSubstr("is not a file, http or https address")));
}

TEST_F(FolderScanTest, AFolderWithoutVideosIsAnError) {
  makeFile("notes.txt");
  EXPECT_THAT(namesOf({folder.path()}), ElementsAre(HasSubstr("nothing to play")));
}

}  // namespace
}  // namespace zaffo::feed
