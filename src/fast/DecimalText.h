// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace zaffo {

/// The shortest decimal text that reads back as `value`, always distinct from that of an integer:
/// "1.5", "0.0", "-2.0", "0.041666666666666664", "1e-05", "inf", "nan". Thread: any.
[[nodiscard]] std::string decimalText(double value);

}  // namespace zaffo
