// SPDX-License-Identifier: Apache-2.0

// zaffo-feed: shows videos as a feed.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "FeedApplication.h"
#include "Options.h"
#include "Tour.h"
#include "feed/FolderScan.h"
#include "script/Script.h"

namespace zaffo::feed {

namespace {

constexpr int kUsageError = 2;

int usageError(const std::string& text) {
  std::fprintf(stderr, "zaffo-feed: %s\n", text.c_str());
  return kUsageError;
}

int scriptError(const Options& options, const ScriptError& error) {
  const std::string file = options.scriptFile.empty() ? "-e" : options.scriptFile;
  return usageError(file + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) +
                    ": " + error.text);
}

/// The script's text; empty when its file cannot be read.
std::optional<std::string> readScript(const Options& options) {
  if (options.scriptFile.empty()) return options.commands;
  std::error_code ignored;
  std::ifstream file(options.scriptFile);
  if (!file || std::filesystem::is_directory(options.scriptFile, ignored)) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void useCacheFolder(const Options& options) {
  if (options.cacheFolder.empty()) return;
  NetworkSettings::shared().setCacheFolder(
      options.cacheFolder, NetworkSettings::kUsualCacheBytes, [](const NSErrorPtr& error) {
        if (error) std::fprintf(stderr, "zaffo-feed: %s\n", error->localizedDescription().c_str());
      });
}

/// Waits for the lists among them.
Clips clipsOf(const URLs& urls) {
  std::optional<Clips> read;
  readClipLists(urls, [&read](Clips clips) { read = std::move(clips); });
  while (!read) MainLoop::runTurn(-1);
  return *std::move(read);
}

int runFeed(const Options& options) {
  const auto videos = collectVideos(withListedInputs(options.inputs, std::cin),
                                    options.recursive ? Folders::Deep : Folders::Flat);
  if (const auto* wrong = std::get_if<std::string>(&videos)) return usageError(*wrong);
  useCacheFolder(options);
  const Clips clips = clipsOf(std::get<URLs>(videos));
  if (options.start > static_cast<long>(clips.size()))
    return usageError("there is no page " + std::to_string(options.start) + "; the last one is " +
                      std::to_string(clips.size()));

  const auto text = readScript(options);
  if (!text) return usageError(options.scriptFile + ": cannot be read");
  const auto script = parseScript(*text);
  if (const auto* wrong = std::get_if<ScriptError>(&script)) return scriptError(options, *wrong);
  auto commands = std::get<std::vector<Command>>(script);
  if (const auto wrong = findMissingPage(commands, static_cast<long>(clips.size())))
    return scriptError(options, *wrong);

  if (!options.trace) setTraceSink([](std::string_view) {});
  const Tour tour(options, static_cast<int>(clips.size()));
  if (tour.isWanted()) commands = tour.commands();
  FeedApplication application(options, clips, std::move(commands));
  const int status = application.run();
  if (tour.isWanted() && status == 0) {
    std::printf("%s%s\n", application.statistics().summary().c_str(), tour.lastLine().c_str());
  }
  return status;
}

}  // namespace

}  // namespace zaffo::feed

int main(int argc, char** argv) {
  using namespace zaffo::feed;
  const auto parsed = parseOptions(std::vector<std::string>(argv, argv + argc));
  if (const auto* exit = std::get_if<EarlyExit>(&parsed)) {
    std::fputs(exit->text.c_str(), exit->status == 0 ? stdout : stderr);
    return exit->status;
  }
  const int status = runFeed(std::get<Options>(parsed));
  // Lets what the window and the players left to workers finish before the process ends.
  zaffo::dispatch_wait_until_idle();
  zaffo::MainLoop::runTurn();
  zaffo::dispatch_wait_until_idle();
  return status;
}
