// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpResource.h"

#include <algorithm>
#include <utility>

#include "platform/network/HttpResourceCore.h"

namespace zaffo::network {

namespace {

using Core = HttpResourceCore;

class HeldWant final : public media::ByteSource::Want {
 public:
  HeldWant(std::shared_ptr<Core> core, std::shared_ptr<Core::AwaitedRange> range)
      : core_(std::move(core)), range_(std::move(range)) {
    core_->add(range_);
  }
  ~HeldWant() override { core_->remove(range_); }

 private:
  const std::shared_ptr<Core> core_;
  const std::shared_ptr<Core::AwaitedRange> range_;
};

std::unique_ptr<media::ByteSource::Want> hold(const std::shared_ptr<Core>& core, Core::Use use,
                                              int64_t offset, int64_t count,
                                              std::function<void()> handler) {
  const int64_t begin = std::clamp<int64_t>(offset, 0, kFarthest);
  const int64_t end = begin + std::clamp<int64_t>(count, 0, kFarthest - begin);
  return std::make_unique<HeldWant>(
      core, std::make_shared<Core::AwaitedRange>(use, begin, end, std::move(handler)));
}

}  // namespace

HttpResource::HttpResource(URL address, HttpOptions options, HttpClient& client, ByteBudget& budget)
    : core_(std::make_shared<Core>(std::move(address), std::move(options), client, budget)),
      budget_(budget) {
  budget_.add(core_);
}

HttpResource::~HttpResource() {
  budget_.remove(*core_);
  core_->close();
}

void HttpResource::rest() {
  budget_.remove(*core_);
  core_->rest();
}

void HttpResource::wake() {
  core_->wake();
  budget_.add(core_);
}

bool HttpResource::isWorthKeeping() const {
  return core_->isWorthKeeping();
}

int64_t HttpResource::readHeld(int64_t offset, std::span<uint8_t> bytes) {
  return core_->readHeld(Core::Use::Read, offset, bytes);
}

int64_t HttpResource::readToPreload(int64_t offset, std::span<uint8_t> bytes) {
  return core_->readHeld(Core::Use::Preload, offset, bytes);
}

void HttpResource::beginPreload() {
  core_->beginPreload();
}

void HttpResource::endPreload() {
  core_->endPreload();
}

std::unique_ptr<media::ByteSource::Want> HttpResource::want(int64_t offset, int64_t count,
                                                            std::function<void()> handler) {
  return hold(core_, Core::Use::Read, offset, count, std::move(handler));
}

std::unique_ptr<media::ByteSource::Want> HttpResource::wantToPreload(
    int64_t offset, int64_t count, std::function<void()> handler) {
  return hold(core_, Core::Use::Preload, offset, count, std::move(handler));
}

std::optional<int64_t> HttpResource::size() const {
  return core_->size();
}

media::ByteSource::Ahead HttpResource::ahead() const {
  return core_->ahead();
}

NSErrorPtr HttpResource::error() const {
  return core_->error();
}

URL HttpResource::location() const {
  return core_->location();
}

const std::string& HttpResource::name() const {
  return core_->name();
}

}  // namespace zaffo::network
