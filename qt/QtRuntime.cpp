// SPDX-License-Identifier: Apache-2.0
#include "QtRuntime.h"

#include <ZaffoPlayback/ZaffoPlayback.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>
#include <QtCore/QSocketNotifier>

namespace zaffo::qt {

namespace {

/// Goes with the application object, which a program may make anew.
void attachMainLoop() {
  static QPointer<QSocketNotifier> notifier;
  if (notifier || !QCoreApplication::instance()) return;
  notifier = new QSocketNotifier(MainLoop::fileDescriptor(), QSocketNotifier::Read,
                                 QCoreApplication::instance());
  QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] { MainLoop::runTurn(); });
}

}  // namespace

std::shared_ptr<PlayerManager> sharedPool() {
  static std::weak_ptr<PlayerManager> shared;
  attachMainLoop();
  auto pool = shared.lock();
  if (!pool) shared = pool = PlayerManager::create();
  return pool;
}

}  // namespace zaffo::qt
