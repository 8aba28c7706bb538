// SPDX-License-Identifier: Apache-2.0
// The mark on what a library promises; everything else is hidden when it is built.
#pragma once

#define OV_EXPORT __attribute__((visibility("default")))
