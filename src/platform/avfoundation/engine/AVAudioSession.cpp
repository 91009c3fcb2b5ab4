// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioSession.h"

#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"
#include "platform/media/MediaServices.h"
#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo {

using media::AudioOutputEngine;
using media::MediaServices;

AVAudioSession& AVAudioSession::sharedInstance() {
  static AVAudioSession session;
  return session;
}

void AVAudioSession::setOutput(Output output) {
  assertMainThread();
  AudioOutputEngine::shared().setRoute(output == Output::Device ? AudioOutputEngine::Route::Device
                                                                : AudioOutputEngine::Route::Null);
}

NSErrorPtr AVAudioSession::startRecording(const std::string& path) {
  assertMainThread();
  return AudioOutputEngine::shared().startRecording(path);
}

void AVAudioSession::stopRecording() {
  assertMainThread();
  AudioOutputEngine::shared().stopRecording();
}

int AVAudioSession::sampleRate() const {
  return AudioOutputEngine::shared().sampleRate();
}

void AVAudioSession::resetMediaServices() {
  assertMainThread();
  AudioOutputEngine::shared().reopenDevice();
  MediaServices::shared().reset();
  NSNotificationCenter::defaultCenter().postNotification(
      AVAudioSessionMediaServicesWereResetNotification);
}

}  // namespace zaffo
