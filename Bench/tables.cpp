// SPDX-License-Identifier: Apache-2.0
#include "tables.h"

#include <algorithm>
#include <cstdio>

namespace tovix::bench {
namespace {

constexpr struct {
    std::string_view conversion, peer;
} kPeers[] = {
    {"mono", "opencv GRAY2RGB"},    {"none", "opencv GRAY2RGB"},    {"nearest", "dc1394 nearest"},
    {"nearest", "opencv GRAY2RGB"}, {"nearest", "opencv bilinear"}, {"nearest", "opencv transform"},
    {"quelt", "dc1394 simple"},     {"quelt", "opencv bilinear"},   {"edge", "opencv EA"},
    {"edge", "opencv bilinear"},    {"zurno", "opencv EA"},         {"zurno", "opencv bilinear"},
    {"zurno", "dc1394 HQ linear"},
};

/// Our time is to be at most so many times that of the peer, and is meant to become less. 0: nothing was said.
constexpr struct {
    std::string_view group, conversion, peer;
    double limit, aim;
} kGoals[] = {
    {"8to24/plain", "nearest", "dc1394 nearest", 0.30, 0.24},
    {"8to24/plain", "nearest", "opencv GRAY2RGB", 1.10, 0},
    {"8to24/plain", "quelt", "dc1394 simple", 0.30, 0.20},
    {"8to24/plain", "edge", "opencv EA", 0.45, 0.35},
    {"8to24/plain", "zurno", "opencv EA", 0.95, 0.85},
    {"8to24/plain", "zurno", "dc1394 HQ linear", 0.12, 0},
    {"8to24/plain", "zurno", "opencv bilinear", 0, 1.00},
    {"8to24/matrix", "nearest", "opencv transform", 0.55, 0.45},
    {"8to24/matrix", "edge", "opencv EA", 0.40, 0.35},
    {"8to24/both", "edge", "opencv EA", 0.42, 0.36},
    {"8to24/matrix", "zurno", "opencv EA", 0.65, 0.58},
    {"8to24/both", "zurno", "opencv EA", 0.62, 0.55},
    {"16to24/plain", "nearest", "opencv bilinear", 0.45, 0.40},
    {"16to24/plain", "edge", "opencv EA", 0.50, 0.42},
    {"16to24/plain", "zurno", "opencv EA", 0.88, 0.80},
    {"16to24/both", "edge", "opencv EA", 0.52, 0.42},
    {"16to48/plain", "edge", "opencv EA", 0.17, 0.14},
    {"16to48/plain", "edge", "opencv bilinear", 0.42, 0.35},
    {"16to48/matrix", "edge", "opencv EA", 0.20, 0.17},
    {"16to48/plain", "zurno", "dc1394 HQ linear", 0.35, 0.20},
};

const Result* find(const MeasuredGroup& measured, std::string_view name) {
    const auto found = std::ranges::find(measured.results, name, &Result::name);
    return found == measured.results.end() ? nullptr : &*found;
}

struct Ratio {
    double memory, cache;
};
Ratio operator/(const Result& a, const Result& b) {
    return {a.memory.minimum_ms / b.memory.minimum_ms, a.cache.minimum_ms / b.cache.minimum_ms};
}

std::string heading(FrameSize size) {
    return std::to_string(size.width) + " x " + std::to_string(size.height);
}

void print_number(double number) {
    number == 0 ? std::printf("  | ") : std::printf("%.2f | ", number);
}

}  // namespace

bool is_peer(const std::string& conversion, const std::string& other) {
    return other == "floor" || std::ranges::any_of(kPeers, [&](const auto& row) {
               return row.conversion == conversion && row.peer == other;
           });
}

void print_goals(const std::vector<MeasuredGroup>& measured) {
    std::printf("| frame | conversion | by | from memory | in cache | no more than | aim | |\n");
    std::printf("|---|---|---|---:|---:|---:|---:|---|\n");
    for (const MeasuredGroup& m : measured) {
        for (const auto& goal : kGoals) {
            const Result *const ours = find(m, goal.conversion), *const peer = find(m, goal.peer);
            if (m.group.name != goal.group || ours == nullptr || peer == nullptr) continue;
            const Ratio ratio = *ours / *peer;
            std::printf("| %s | %s %s | %s | %.2f | %.2f | ", heading(m.size).c_str(), ours->name.c_str(),
                        m.group.name.c_str(), peer->name.c_str(), ratio.memory, ratio.cache);
            print_number(goal.limit);
            print_number(goal.aim);
            const double worse = std::max(ratio.memory, ratio.cache);
            std::printf("%s |\n", goal.limit != 0 && worse > goal.limit ? "missed" : worse > goal.aim ? "" : "aim");
        }
    }
}

void print_times(const std::vector<MeasuredGroup>& measured, FrameSize size) {
    std::printf("\n| %s | memory, ms | median | by floor | cache, ms | median | by floor | by peers: memory, cache |\n",
                heading(size).c_str());
    std::printf("|---|---:|---:|---:|---:|---:|---:|---|\n");
    for (const MeasuredGroup& m : measured) {
        if (m.group.variants || m.size.pixels() != size.pixels()) continue;
        const Result* const floor = find(m, "floor");
        for (const Result& result : m.results) {
            const Ratio by_floor = result / *floor;
            std::printf("| %s %s | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | ", result.name.c_str(),
                        m.group.name.c_str(), result.memory.minimum_ms, result.memory.median_ms, by_floor.memory,
                        result.cache.minimum_ms, result.cache.median_ms, by_floor.cache);
            const char* separator = "";
            for (const auto& [conversion, other] : kPeers) {
                const Result* const peer = find(m, other);
                if (conversion != result.name || peer == nullptr) continue;
                const Ratio ratio = result / *peer;
                std::printf("%s%s %.2f, %.2f", separator, peer->name.c_str(), ratio.memory, ratio.cache);
                separator = "; ";
            }
            std::printf(" |\n");
        }
    }
}

void print_variants(const std::vector<MeasuredGroup>& measured, FrameSize size) {
    std::vector<std::string> names;  // of columns
    for (const MeasuredGroup& m : measured) {
        for (const Case& variant : m.group.variants ? m.group.ours : std::vector<Case>{}) {
            if (std::ranges::find(names, variant.name) == names.end()) names.push_back(variant.name);
        }
    }
    if (names.empty()) return;
    names.erase(names.begin());  // the plain one

    std::printf("\n| %s |", heading(size).c_str());
    for (const std::string& name : names)
        std::printf(" %s |", name.c_str());
    std::printf("\n|---|");
    for (std::size_t i = 0; i < names.size(); ++i)
        std::printf("---:|");
    std::printf("\n");
    for (const MeasuredGroup& m : measured) {
        if (!m.group.variants || m.size.pixels() != size.pixels()) continue;
        std::printf("| %s |", m.group.name.c_str());
        for (const std::string& name : names) {
            const Result* const variant = find(m, name);
            if (variant == nullptr) {
                std::printf(" |");
                continue;
            }
            const Ratio ratio = *variant / m.results.front();
            std::printf(" %.2f, %.2f |", ratio.memory, ratio.cache);
        }
        std::printf("\n");
    }
}

}  // namespace tovix::bench
