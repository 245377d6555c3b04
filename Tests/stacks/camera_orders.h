// SPDX-License-Identifier: Apache-2.0
// How a RemoteStack tells whoever serves its cameras to plug them in and out: a line each, "plug N" or "unplug N" for the
// N-th camera, from 1, which is answered by the line "done".
#pragma once

#include <cstdio>
#include <string_view>

namespace tovix::stacks {

/// Obey until the orders end. False when one cannot be carried out. `carry_out(plug, index)` says whether it could.
template <class CarryOut>
[[nodiscard]] bool obey(std::FILE* orders, std::FILE* answers, std::size_t cameras, const CarryOut& carry_out) {
    char line[64], word[16];
    while (std::fgets(line, sizeof line, orders) != nullptr) {
        std::size_t number = 0;
        if (std::sscanf(line, "%15s %zu", word, &number) != 2 || number < 1 || number > cameras) return false;
        const bool plug = std::string_view(word) == "plug";
        if (!carry_out(plug, number - 1)) return false;
        std::fputs("done\n", answers);
        std::fflush(answers);
    }
    return true;
}

}  // namespace tovix::stacks
