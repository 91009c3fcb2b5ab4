// SPDX-License-Identifier: Apache-2.0
#include "VideoList.h"

#include <utility>

namespace zaffo::feed {

namespace {

/// A clip too short to loop is played as it is.
std::shared_ptr<FeedVideo> makeVideo(const ListedClip& clip, std::string id, Options::Loop loop) {
  std::shared_ptr<AVPlayerItemLoader> loader, plain;
  loader = ZFSingleLoopVideoPlayerItemLoader::createWithURL(clip.url);
  if (loop == Options::Loop::Looping) {
    plain = std::move(loader);
    loader = ZFLoopingVideoPlayerItemLoader::createWithURL(clip.url);
  }
  auto video =
      std::make_shared<FeedVideo>(clip.url, std::move(id), std::move(loader), std::move(plain));
  video->setTitle(clip.title);
  return video;
}

}  // namespace

VideoList::VideoList(const Clips& clips, Options::Loop loop) : loop_(loop) {
  add(clips);
}

void VideoList::add(const Clips& clips) {
  for (const auto& clip : clips) {
    std::string id = clip.url->absoluteString();
    if (const int number = ++uses_[id]; number > 1) id += "#" + std::to_string(number);
    videos_.push_back(makeVideo(clip, std::move(id), loop_));
  }
}

}  // namespace zaffo::feed
