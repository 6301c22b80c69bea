// SPDX-License-Identifier: Apache-2.0
// What a fuzz target is: a function that works on any bytes and neither crashes nor
// hangs. A fuzzer calls it, or replay_main.cpp with the bytes of files.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
