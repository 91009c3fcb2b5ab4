// SPDX-License-Identifier: Apache-2.0
#include "VideoList.h"

#include <utility>

namespace zaffo::feed {

namespace {

/// A clip too short to loop is played as it is.
std::shared_ptr<FeedVideo> makeVideo(const URLs::value_type& url, std::string id,
                                     Options::Loop loop) {
  auto plain = ZFSingleLoopVideoPlayerItemLoader::createWithURL(url);
  if (loop != Options::Loop::Looping)
    return std::make_shared<FeedVideo>(url, std::move(id), std::move(plain));
  auto looping = ZFLoopingVideoPlayerItemLoader::createWithURL(url);
  return std::make_shared<FeedVideo>(url, std::move(id), std::move(looping), std::move(plain));
}

}  // namespace

VideoList::VideoList(const URLs& urls, Options::Loop loop) : loop_(loop) {
  add(urls);
}

void VideoList::add(const URLs& urls) {
  for (const auto& url : urls) {
    std::string id = url->absoluteString();
    if (const int number = ++uses_[id]; number > 1) id += "#" + std::to_string(number);
    videos_.push_back(makeVideo(url, std::move(id), loop_));
  }
}

}  // namespace zaffo::feed
