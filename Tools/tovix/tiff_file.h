// SPDX-License-Identifier: Apache-2.0
// Pictures in TIFF files: uncompressed, since not every program reads every compression, and TIFF files are made for
// programs rather than for the eye.
#pragma once

#include "pending_file.h"
#include "rendering.h"

/// Throws Failure.
void write_tiff(const PendingFile& file, const Picture& picture);
