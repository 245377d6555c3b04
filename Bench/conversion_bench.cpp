// SPDX-License-Identifier: Apache-2.0
// Speed of CVorm::ConvertToRgb, of what other libraries offer instead, and of memory alone: one thread on one core, in turn.
// Prints tables; ratios are of minima.
//
//   conversion_bench [--rounds N] [--size WIDTHxHEIGHT] [TEXT...]
//
// Without a TEXT everything is measured, in some minutes; else the conversions whose names contain one of them, with
// their peers: edge, edge/8to24, zurno/8to24/matrix, nearest/16to24/variants.
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tables.h"

namespace {

using namespace tovix::bench;

struct Options {
    std::vector<FrameSize> sizes{{2592, 1944}, {1280, 1024}};
    unsigned rounds = 60;
    std::vector<std::string> texts;
};

Options options_of(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const char* const value = i + 1 < argc ? argv[i + 1] : "";
        FrameSize size{};
        if (word == "--rounds" && std::sscanf(value, "%u", &options.rounds) == 1 && options.rounds > 0) {
            ++i;
        } else if (word == "--size" && std::sscanf(value, "%ux%u", &size.width, &size.height) == 2) {
            options.sizes = {size};
            ++i;
        } else if (word.starts_with('-')) {
            throw std::runtime_error("usage: conversion_bench [--rounds N] [--size WIDTHxHEIGHT] [TEXT...]");
        } else {
            options.texts.push_back(word);
        }
    }
    return options;
}

/// Leave what was not asked for out of the group. What is compared with nothing goes, too.
void choose(Group& group, const std::vector<std::string>& texts) {
    if (texts.empty()) return;
    const auto is_named = [&](const std::string& name) {
        return std::ranges::any_of(texts,
                                   [&](const std::string& text) { return name.find(text) != std::string::npos; });
    };
    if (group.variants) {
        if (!is_named(group.name)) group.ours.clear();
        return;
    }
    std::erase_if(group.ours, [&](const Case& c) { return !is_named(c.name + '/' + group.name); });
    std::erase_if(group.others, [&](const Case& other) {
        return std::ranges::none_of(group.ours, [&](const Case& c) { return is_peer(c.name, other.name); });
    });
}

void stay_on_this_core() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &core);
    if (sched_setaffinity(0, sizeof core, &core) != 0) throw std::runtime_error("the thread was not pinned to a core");
}

}  // namespace

int main(int argc, char** argv) try {
    const Options options = options_of(argc, argv);
    stay_on_this_core();
    std::vector<MeasuredGroup> measured;
    for (const FrameSize size : options.sizes) {
        Buffers buffers(size);
        for (Group& group : groups_of(size)) {
            choose(group, options.texts);
            if (group.ours.empty()) continue;
            std::fprintf(stderr, "%ux%u %s\n", size.width, size.height, group.name.c_str());
            measured.push_back({size, group, measure(group, buffers, options.rounds)});
        }
    }
    print_goals(measured);
    for (const FrameSize size : options.sizes) {
        print_times(measured, size);
        print_variants(measured, size);
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
}
