// SPDX-License-Identifier: Apache-2.0
#include "bench_case.h"

namespace tovix::bench {

std::vector<Case> demosaic_peers_of(FrameSize, Depths, const Colours&, unsigned) {
    return {};
}

std::vector<Case> peers_of(FrameSize, Depths, const Colours&) {
    return {};
}

}  // namespace tovix::bench
