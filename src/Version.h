// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The version of the headers that an application is compiled with; that of the library that it
/// runs with is in ZaffoPlayback.h.
#define ZAFFO_VERSION_MAJOR 0
#define ZAFFO_VERSION_MINOR 1
#define ZAFFO_VERSION_PATCH 0

/// Whether the headers are of this version or a later one, for the preprocessor too.
#define ZAFFO_VERSION_AT_LEAST(major, minor, patch)                                    \
  (ZAFFO_VERSION_MAJOR * 1000000 + ZAFFO_VERSION_MINOR * 1000 + ZAFFO_VERSION_PATCH >= \
   (major)*1000000 + (minor)*1000 + (patch))
