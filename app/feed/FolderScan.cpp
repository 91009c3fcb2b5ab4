// SPDX-License-Identifier: Apache-2.0
#include "feed/FolderScan.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>

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

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

char lowered(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

/// The digits of a number from `at` on, without the noughts before it; moves `at` behind it.
std::string_view takeNumber(const std::string& text, std::size_t& at) {
  while (at < text.size() && text[at] == '0') ++at;
  const std::size_t from = at;
  while (at < text.size() && isDigit(text[at])) ++at;
  return std::string_view(text).substr(from, at - from);
}

/// Below 0, 0, above 0: as a person would put them, apart from the case of letters.
int compareNaturally(const std::string& a, const std::string& b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      const auto first = takeNumber(a, i), second = takeNumber(b, j);
      if (first.size() != second.size()) return first.size() < second.size() ? -1 : 1;
      if (const int order = first.compare(second); order != 0) return order;
      continue;
    }
    const auto first = static_cast<unsigned char>(lowered(a[i++]));
    const auto second = static_cast<unsigned char>(lowered(b[j++]));
    if (first != second) return first < second ? -1 : 1;
  }
  return static_cast<int>(i < a.size()) - static_cast<int>(j < b.size());
}

void addVideosInFolder(const std::filesystem::path& folder, Folders folders, URLs& urls) {
  std::vector<std::filesystem::path> paths;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    const bool isHidden = entry->path().filename().string().starts_with('.');
    // A link to a folder may lead back here.
    const bool isFolder = entry->is_directory(ignored);
    const bool isWanted = isFolder ? folders == Folders::Deep && !entry->is_symlink(ignored)
                                   : isVideoName(entry->path());
    if (isWanted && !isHidden) paths.push_back(entry->path());
  }
  std::ranges::sort(paths, [](const auto& a, const auto& b) {
    return comesBefore(a.filename().string(), b.filename().string());
  });
  for (const auto& path : paths) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
      addVideosInFolder(path, folders, urls);
    } else {
      urls.push_back(NSURL::fileURLWithPath(path.string()));
    }
  }
}

std::shared_ptr<const NSURL> parseAddress(const std::string& text) {
  auto url = NSURL::URLWithString(text);
  if (!url) return nullptr;
  const bool known = url->scheme() == "file" || url->scheme() == "http" || url->scheme() == "https";
  return known ? url : nullptr;
}

}  // namespace

bool comesBefore(const std::string& a, const std::string& b) {
  const int order = compareNaturally(a, b);
  return order != 0 ? order < 0 : a < b;
}

std::vector<std::string> withListedInputs(const std::vector<std::string>& inputs,
                                          std::istream& list) {
  std::vector<std::string> all;
  for (const auto& input : inputs) {
    if (input != "-") {
      all.push_back(input);
      continue;
    }
    for (std::string line; std::getline(list, line);) {
      if (line.ends_with('\r')) line.pop_back();
      if (!line.empty()) all.push_back(line);
    }
  }
  return all;
}

std::variant<URLs, std::string> collectVideos(const std::vector<std::string>& inputs,
                                              Folders folders) {
  URLs urls;
  for (const auto& input : inputs) {
    std::error_code ignored;
    if (input.find("://") != std::string::npos) {
      auto url = parseAddress(input);
      if (!url) return "'" + input + "' is not a file, http or https address";
      urls.push_back(std::move(url));
    } else if (std::filesystem::is_directory(input, ignored)) {
      addVideosInFolder(input, folders, urls);
    } else {
      urls.push_back(NSURL::fileURLWithPath(input));
    }
  }
  if (urls.empty()) {
    const bool isEmpty = inputs.empty();
    return std::string(isEmpty ? "nothing to play: the list is empty"
                               : "nothing to play: no video in the folder");
  }
  return urls;
}

}  // namespace zaffo::feed
