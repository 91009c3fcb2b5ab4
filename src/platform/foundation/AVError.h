// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zaffo {

/// The domain of errors that originate in assets, items and players.
inline constexpr const char* AVFoundationErrorDomain = "AVFoundationErrorDomain";

/// The platform's codes within AVFoundationErrorDomain. They are defined here, below the
/// frameworks, because the engine underneath avfoundation reports them too.
enum AVError : long {
  AVErrorUnknown = -11800,  ///< see the underlying error
  AVErrorMediaServicesWereReset = -11819,
  AVErrorDecodeFailed = -11821,        ///< damaged samples, or none that can be decoded
  AVErrorInvalidSourceMedia = -11822,  ///< the track does not fit, or its asset is gone
  AVErrorInvalidCompositionTrackSegmentSourceStartTime = -11826,
  AVErrorInvalidCompositionTrackSegmentSourceDuration = -11827,
  AVErrorFileFormatNotRecognized = -11828,  ///< not one of the supported formats
  AVErrorFileFailedToParse = -11829,        ///< a supported format, but cut short or damaged
  AVErrorContentIsProtected = -11831,       ///< encrypted
  AVErrorNoImageAtTime = -11832,
  AVErrorDecoderNotFound = -11833,  ///< no decoder for the codec, or beyond its limits
  AVErrorServerIncorrectlyConfigured = -11850,
  AVErrorUnsupportedURL = -11838,  ///< the URL's scheme is not supported
};

}  // namespace zaffo
