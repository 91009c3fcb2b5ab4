// SPDX-License-Identifier: Apache-2.0
#pragma once

// What nearly every test includes, compiled once. Tests include what they use all the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>
