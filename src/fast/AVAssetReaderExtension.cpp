// SPDX-License-Identifier: Apache-2.0
#include "fast/AVAssetReaderExtension.h"

#include <utility>

#include "platform/FatalError.h"

namespace zaffo {

AVAssetReaderExtension::ReadError AVAssetReaderExtension::ReadError::failed(NSErrorPtr error) {
  if (!error) fatalError("The asset reader failed without an error");
  return ReadError(Case::Failed, std::move(error));
}

NSErrorPtr AVAssetReaderExtension::ReadError::asNSError() const {
  return NSError::create(domain, static_cast<long>(kind_));
}

}  // namespace zaffo
