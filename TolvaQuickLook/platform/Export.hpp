// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library shows to programs that link it; everything else is hidden.
#define TOLVA_EXPORT __attribute__((visibility("default")))
