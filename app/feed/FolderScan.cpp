#include "feed/FolderScan.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

namespace zaffo::feed {

namespace {

constexpr std::array kVideoSuffixes{".mp4", ".m4v", ".mov", ".webm", ".mkv",  ".avi",
                                    ".ts",  ".ogv", ".3gp", ".mpg",  ".mpeg", ".flv"};

bool isVideoName(const std::filesystem::path& path) {
  if (path.filename().string().starts_with('.')) return false;
  std::string suffix = path.extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::find(kVideoSuffixes.begin(), kVideoSuffixes.end(), suffix) != kVideoSuffixes.end();
}

URLs videosInFolder(const std::filesystem::path& folder) {
  std::vector<std::string> paths;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (!entry->is_directory(ignored) && isVideoName(entry->path()))
      paths.push_back(entry->path().string());
  }
  std::sort(paths.begin(), paths.end());
  URLs urls;
  for (const auto& path : paths) urls.push_back(NSURL::fileURLWithPath(path));
  return urls;
}

std::shared_ptr<const NSURL> parseAddress(const std::string& text) {
  auto url = NSURL::URLWithString(text);
  if (!url) return nullptr;
  const bool known = url->scheme() == "file" || url->scheme() == "http" || url->scheme() == "https";
  return known ? url : nullptr;
}

}  // namespace

std::variant<URLs, std::string> collectVideos(const std::vector<std::string>& inputs) {
  URLs urls;
  for (const auto& input : inputs) {
    std::error_code ignored;
    if (input.find("://") != std::string::npos) {
      auto url = parseAddress(input);
      if (!url) return "'" + input + "' is not a file, http or https address";
      urls.push_back(std::move(url));
    } else if (std::filesystem::is_directory(input, ignored)) {
      const auto found = videosInFolder(input);
      urls.insert(urls.end(), found.begin(), found.end());
    } else {
      urls.push_back(NSURL::fileURLWithPath(input));
    }
  }
  if (urls.empty()) return std::string("nothing to play: no video in the folder");
  return urls;
}

}  // namespace zaffo::feed
