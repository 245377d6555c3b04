// SPDX-License-Identifier: Apache-2.0
#include "transfer.h"

#include <cstdio>

namespace tovix::simulator {

std::string Transfer::text() const {
    static constexpr const char* kKinds[] = {"control", "bulk out", "bulk in", "attach", "detach"};
    static constexpr const char* kOutcomes[] = {"done", "stall", "silent", "overrun", "gone"};
    std::string line = kKinds[static_cast<int>(kind)];
    char part[96];
    if (kind == Kind::kControl) {
        std::snprintf(part, sizeof part, " %02X %02X value=%04X index=%04X length=%u", setup.request_type,
                      setup.request, setup.value, setup.index, setup.length);
        line += part;
    }
    if (kind == Kind::kControl || kind == Kind::kBulkOut || kind == Kind::kBulkIn) {
        std::snprintf(part, sizeof part, " %s %u:", kOutcomes[static_cast<int>(answer.outcome)], answer.length);
        line += part;
        for (const std::uint8_t byte : head) {
            std::snprintf(part, sizeof part, " %02X", byte);
            line += part;
        }
    }
    return line;
}

}  // namespace tovix::simulator
