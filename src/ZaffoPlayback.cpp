// SPDX-License-Identifier: Apache-2.0
#include "ZaffoPlayback.h"

const double ZaffoPlaybackVersionNumber = ZAFFO_VERSION_NUMBER;
const char* const ZaffoPlaybackVersionString = ZAFFO_VERSION_STRING;
