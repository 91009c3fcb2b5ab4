// SPDX-License-Identifier: Apache-2.0
#include "feed/FolderScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "feed/TemporaryFolder.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> namesOf(const std::vector<std::string>& inputs,
                                 Folders folders = Folders::Flat) {
  const auto videos = collectVideos(inputs, folders);
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

TEST_F(FolderScanTest, NumbersInNamesCountByTheirValue) {
  for (const char* name : {"clip10.mp4", "clip2.mp4", "Clip1.mp4", "clip02b.mp4"}) makeFile(name);
  EXPECT_THAT(namesOf({folder.path()}),
              ElementsAre("Clip1.mp4", "clip2.mp4", "clip02b.mp4", "clip10.mp4"));
}

TEST(ComesBefore, PutsNamesAsAPersonWould) {
  EXPECT_TRUE(comesBefore("a9", "a10"));
  EXPECT_FALSE(comesBefore("a10", "a9"));
  EXPECT_TRUE(comesBefore("99999999999999999998", "99999999999999999999"));
  EXPECT_TRUE(comesBefore("Banana", "cherry"));
  EXPECT_TRUE(comesBefore("apple", "Banana"));
  EXPECT_TRUE(comesBefore("a", "a1"));
  EXPECT_FALSE(comesBefore("same", "same"));
  EXPECT_NE(comesBefore("a01", "a1"), comesBefore("a1", "a01")) << "an order among all names";
  EXPECT_NE(comesBefore("A", "a"), comesBefore("a", "A"));
}

TEST_F(FolderScanTest, FoldersBelowAFolderAreForWhoeverAsks) {
  std::filesystem::create_directories(folder.file("b/deep"));
  std::filesystem::create_directory(folder.file(".hidden"));
  for (const char* name :
       {"a.mp4", "c.mp4", "b/2.mp4", "b/10.mp4", "b/deep/x.mp4", ".hidden/y.mp4"})
    makeFile(name);
  std::filesystem::create_directory_symlink(folder.path(), folder.file("d"));
  EXPECT_THAT(namesOf({folder.path()}), ElementsAre("a.mp4", "c.mp4"));
  EXPECT_THAT(namesOf({folder.path()}, Folders::Deep),
              ElementsAre("a.mp4", "2.mp4", "10.mp4", "x.mp4", "c.mp4"))
      << "a link that leads back is not followed";
}

TEST(WithListedInputs, PutsTheLinesOfTheListInThePlaceOfADash) {
  std::istringstream list("one.mp4\n\ntwo words.mp4\r\nthree");
  EXPECT_THAT(withListedInputs({"a", "-", "b", "./-"}, list),
              ElementsAre("a", "one.mp4", "two words.mp4", "three", "b", "./-"));
}

TEST(WithListedInputs, ReadsNothingWhenThereIsNoDash) {
  std::istringstream list("one.mp4");
  EXPECT_THAT(withListedInputs({"a"}, list), ElementsAre("a"));
  EXPECT_EQ(list.tellg(), 0);
}

TEST_F(FolderScanTest, AnEmptyListIsAnError) {
  EXPECT_THAT(namesOf({}), ElementsAre(HasSubstr("the list is empty")));
}

}  // namespace
}  // namespace zaffo::feed
