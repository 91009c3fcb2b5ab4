// SPDX-License-Identifier: Apache-2.0
#include "cell/FailureText.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace zaffo::feed {

namespace {

/// The system's reason for an error; 0 when it has none.
long systemError(const NSErrorPtr& error) {
  const NSErrorPtr underlying = error->underlyingError();
  return underlying && underlying->domain() == "NSPOSIXErrorDomain" ? underlying->code() : 0;
}

}  // namespace

std::string failureText(const NSErrorPtr& error) {
  if (!error) return "There is no video in it that can be played.";
  switch (systemError(error)) {
    case ENOENT:
    case ENOTDIR:
      return "No such file.";
    case EACCES:
    case EPERM:
      return "There is no permission to read this file.";
    case EISDIR:
      return "This is a folder.";
    default:
      break;
  }
  // What can be opened, and has nothing that could be shown, is to be heard.
  if (error->domain() == AVFoundationErrorDomain && error->code() == AVErrorNoImageAtTime)
    return "This file has sound only.";
  const std::string text = error->localizedDescription();
  return text.empty() ? "There is no video in it that can be played." : text;
}

bool mayPass(const NSErrorPtr& error) {
  // The platform's numbers: timed out, host not found, not reached, connection lost, the server in
  // trouble, no secure connection.
  static constexpr std::array kPassing{-1001L, -1003L, -1004L, -1005L, -1008L, -1200L};
  return error && error->domain() == "NSURLErrorDomain" &&
         std::ranges::find(kPassing, error->code()) != kPassing.end();
}

}  // namespace zaffo::feed
