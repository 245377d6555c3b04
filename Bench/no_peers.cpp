// SPDX-License-Identifier: Apache-2.0
#include "bench_case.h"

void add_peers(std::vector<Case>&, FrameSize) {}
