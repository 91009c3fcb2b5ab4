#pragma once

/// Everything an application needs of ZaffoPlayback.
#include "companion/AVPlayerItemLoader.h"
#include "companion/ShortVideoURL.h"
#include "companion/ZFCancelCommand.h"
#include "companion/ZFVideo.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"
#include "native/AVPlayerLayerContainer.h"
#include "native/PlayerNative.h"
#include "native/PlayerNativeOutputView.h"
#include "platform/Export.h"
#include "platform/FatalError.h"
#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAsset.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/avfoundation/AVPlayerLayer.h"
#include "platform/coremedia/CMAudioClock.h"
#include "platform/coremedia/CMClock.h"
#include "platform/coremedia/CMTime.h"
#include "platform/coremedia/CMTimeRange.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/coremedia/PixelConversion.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/foundation/KeyValueObservation.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"
#include "platform/foundation/NSURL.h"
#include "platform/uikit/CALayer.h"
#include "platform/uikit/CGImage.h"
#include "platform/uikit/Geometry.h"
#include "platform/uikit/UIImage.h"
#include "platform/uikit/UIView.h"
#include "platform/window/Window.h"
#include "pool/Player.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"
#include "pool/ZFMediaQueue.h"

/// The version of the library that is loaded, with C linkage so that a program can also look them
/// up by name: major.minor as a number, and all of it as text. Thread: any.
extern "C" {
ZAFFO_EXPORT extern const double ZaffoPlaybackVersionNumber;
ZAFFO_EXPORT extern const char* const ZaffoPlaybackVersionString;
}
