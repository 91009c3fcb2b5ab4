// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what a shared library exports; everything else stays hidden.
#define ZAFFO_EXPORT [[gnu::visibility("default")]]
