// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/network/HttpResource.h"

namespace zaffo::network {

/// A resource's bytes as one reads them who preloads: they come in pieces of 512 KiB with nothing
/// ahead, and pause while anybody who really reads waits for bytes. Thread: any.
class PreloadBytes final : public media::ByteSource {
 public:
  explicit PreloadBytes(std::shared_ptr<HttpResource> resource) : resource_(std::move(resource)) {
    resource_->beginPreload();
  }
  ~PreloadBytes() override { resource_->endPreload(); }
  PreloadBytes(const PreloadBytes&) = delete;
  PreloadBytes& operator=(const PreloadBytes&) = delete;

  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) override {
    return resource_->readToPreload(offset, bytes);
  }
  [[nodiscard]] std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                           std::function<void()> handler) override {
    return resource_->wantToPreload(offset, count, std::move(handler));
  }
  [[nodiscard]] Ahead ahead() const override { return resource_->ahead(); }
  [[nodiscard]] std::optional<int64_t> size() const override { return resource_->size(); }
  [[nodiscard]] NSErrorPtr error() const override { return resource_->error(); }
  [[nodiscard]] const std::string& name() const override { return resource_->name(); }

 private:
  const std::shared_ptr<HttpResource> resource_;
};

}  // namespace zaffo::network
