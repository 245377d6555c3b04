// SPDX-License-Identifier: Apache-2.0
// The focus search by hand, and over a thousand simulated lenses a kind. TOVIX_PRINT_FOCUS_TABLE=1 prints what it found.
#include "focus_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

std::string text_of(FocusMove move, const FocusState& search) {
    const std::string state = std::to_string(search.af_state);
    switch (move) {
        case FocusMove::kGo: return state + ":" + std::to_string(search.af_target);
        case FocusMove::kFinished: return state + ":finished";
        case FocusMove::kOver: return state + ":over";
        case FocusMove::kGaveUp: return state + ":gave up";
    }
    return "?";
}

/// State and target after each measure, with a lens that is at its target at once, but for the limits of `drive`.
std::string transcript(FocusDrive drive, const std::vector<double>& measures) {
    FocusState search{};
    begin_focus_search(search, drive);
    std::string all;
    for (const double measure : measures) {
        const FocusMove move = advance_focus_search(search, drive, measure);
        all += (all.empty() ? "" : " ") + text_of(move, search);
        if (move != FocusMove::kGo) continue;
        std::int64_t target = search.af_target;
        if (drive.lower_bounded) target = std::max<std::int64_t>(target, drive.min);
        if (drive.upper_bounded) target = std::min<std::int64_t>(target, drive.max);
        drive.position = static_cast<int>(target);
    }
    return all;
}

TEST(FocusSearch, GoesThroughItsStatesAsByHand) {
    constexpr FocusDrive kBoth{0, 3200, 1600, true, true}, kNone{0, 0, 6400, false, false};
    constexpr FocusDrive kNoUpper{0, 0, 640, true, false}, kTiny{0, 2, 1, true, true}, kShort{0, 640, 320, true, true};
    using Measures = std::vector<double>;
    const struct {
        const char* name;
        FocusDrive drive;
        Measures measures;
        std::string expected;
    } cases[] = {
        {"up, over the peak, and back onto it from below", kBoth,
         Measures{10, 20, 30, 25, 10, 10, 10, 10, 10, 10, 10, 10, 1, 1, 1},
         "1:1800 4:1900 6:2000 6:2100 6:2200 6:2300 6:2400 6:2500 6:2600 6:2700 6:2800 7:1717 8:1917 9:finished "
         "9:over"},
        {"reversed", kBoth, Measures{20, 10, 20, 30, 25, 10, 10, 10, 10, 10, 10, 10, 1, 1},
         "1:1800 3:1600 4:1500 6:1400 6:1300 6:1200 6:1100 6:1000 6:900 6:800 6:700 7:1717 8:1517 9:finished"},
        {"down without limits, at first hardly sharper", kNone, Measures{10, 10.5, 14, 12, 1, 1, 1, 1, 1, 1, 1, 1, 1},
         "1:6200 2:6100 6:6000 6:5900 6:5800 6:5700 6:5600 6:5500 6:5400 6:5300 7:6314 8:6114 9:finished"},
        {"up without upper limit, the peak passed while climbing", kNoUpper,
         Measures{10, 10.5, 14, 12, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
         "1:660 2:670 4:680 6:690 6:700 6:710 6:720 6:730 6:740 6:750 6:760 7:650 8:670 9:finished"},
        {"down without lower limit", FocusDrive{0, 9999, 640, false, true}, Measures{10, 10}, "1:620 1:600"},
        {"nearer the upper limit", FocusDrive{0, 3200, 1601, true, true}, Measures{10}, "1:1401"},
        {"sharper at the limit", kTiny, Measures{10, 20}, "1:3 9:finished"},
        {"hardly different at the limit, then past the peak", kTiny, Measures{10, 10, 20, 15, 1, 1},
         "1:3 1:0 4:-1 7:2 8:0 9:finished"},
        {"still climbing at the limit", kTiny, Measures{10, 10, 20, 25}, "1:3 1:0 4:-1 9:finished"},
        {"hardly sharper at the limit", kTiny, Measures{10, 10.5}, "1:3 2:0"},
        {"reversed onto the limit", FocusDrive{0, 3200, 0, true, true}, Measures{10, 5, 10, 1},
         "1:200 3:0 8:-100 9:finished"},
        {"fine search to the limit, with a peak", kShort,
         Measures{10, 20, 30, 40, 50, 45, 44, 44, 44, 44, 44, 44, 44, 44, 44, 44, 44, 44, 44},
         "1:360 4:380 6:400 6:420 6:440 6:460 6:480 6:500 6:520 6:540 6:560 6:580 6:600 6:620 6:640 6:660 7:383 8:423 "
         "9:finished"},
        {"fine search to the limit, without", kShort,
         Measures{10, 20, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44},
         "1:360 4:380 6:400 6:420 6:440 6:460 6:480 6:500 6:520 6:540 6:560 6:580 6:600 6:620 6:640 6:660 9:finished"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(transcript(c.drive, c.measures), c.expected) << c.name;
}

TEST(FocusSearch, EndsWhereNothingIsToBeFound) {
    const auto moves_until_end = [](const FocusDrive& drive, const auto& measure_at, FocusMove expected) {
        FocusState search{};
        begin_focus_search(search, drive);
        for (int moves = 0;; ++moves) {
            const FocusMove move = advance_focus_search(search, drive, measure_at(moves));
            if (move == FocusMove::kGo && moves < 10'000) continue;
            EXPECT_EQ(move, expected);
            EXPECT_EQ(search.af_state, 9);
            EXPECT_EQ(advance_focus_search(search, drive, 1), FocusMove::kOver);
            return moves;
        }
    };
    const auto flat = [](int) { return 1.0; };
    const auto rising = [](int call) { return 1.0 + call; };
    const auto no_number = [](int) { return std::nan(""); };
    for (const FocusDrive& drive : {FocusDrive{0, 3200, 1600, true, true}, {0, 0, 0, false, false}}) {
        EXPECT_EQ(moves_until_end(drive, flat, FocusMove::kGaveUp), 1 + 36);
        EXPECT_EQ(moves_until_end(drive, no_number, FocusMove::kGaveUp), 1 + 36);
    }
    EXPECT_EQ(moves_until_end({0, 0, 0, false, false}, rising, FocusMove::kFinished), 3 + 1024);
    constexpr int kLeast = INT32_MIN, kMost = INT32_MAX;
    for (const int position : {kLeast, 0, kMost})
        for (const bool bounded : {true, false})
            moves_until_end({kLeast, kMost, position, bounded, bounded}, flat, FocusMove::kGaveUp);
}

TEST(FocusSearch, WithoutLimitsReachesAHillSeenFromAfar) {
    constexpr int kPeak = 640 + 450 * 10;  // the step is 10, and downwards comes first
    FocusDrive drive{0, 0, 640, false, false};
    FocusState search{};
    begin_focus_search(search, drive);
    for (FocusMove move = FocusMove::kGo; move == FocusMove::kGo; drive.position = static_cast<int>(search.af_target))
        move = advance_focus_search(search, drive, 1 / (1 + std::pow((drive.position - kPeak) / 100.0, 2)));
    EXPECT_NEAR(drive.position, kPeak, 10);
}

TEST(FocusSearch, StepFollowsTheRangeOrThePosition) {
    const struct {
        FocusDrive drive;
        std::int64_t step;
    } cases[] = {
        {{0, 3200, 5, true, true}, 100},   {{0, 31, 5, true, true}, 1},
        {{0, 3200, 640, true, false}, 10}, {{0, 0, -640, false, true}, 10},
        {{0, 0, 63, false, false}, 1},     {{0, 0, INT32_MIN, false, false}, 1 << 25},
        {{-100, 60, 0, true, true}, 5},    {{INT32_MIN, INT32_MAX, 0, true, true}, 134217727},
    };
    for (const auto& c : cases) {
        FocusState search{};
        begin_focus_search(search, c.drive);
        EXPECT_EQ(search.af_step, c.step) << c.drive.min << " to " << c.drive.max << " at " << c.drive.position;
    }
}

TEST(FocusSearch, WaitsForTheLens) {
    const auto waits = [](std::int32_t direction, const std::vector<int>& positions) {
        FocusState search{};
        search.af_state = 1;
        search.af_direction = direction;
        search.af_target = 2 * direction;
        std::string measured;
        for (const int position : positions)
            measured += lens_at_rest(search, position) ? "m" : ".";
        return measured;
    };
    EXPECT_EQ(waits(50, {50, 100, 100, 100, 100}), "...m.") << "measured again only after one more frame";
    EXPECT_EQ(waits(50, {70, 120, 110, 110, 110}), "....m") << "past its target, and back";
    EXPECT_EQ(waits(50, {60, 60, 60, 60}), "...m") << "stopped short";
    EXPECT_EQ(waits(-50, {-100, -100, -100}), "..m");
    EXPECT_EQ(waits(-50, {-60, -60, -60, -60}), "...m");
    EXPECT_EQ(waits(50, {0, 0}), ".m") << "never moved";
    EXPECT_EQ(waits(50, {10, 20, 30, 40, 50, 60}), "......");
    FocusState first{};
    EXPECT_TRUE(lens_at_rest(first, 12345));
}

struct LensKind {
    const char* name;
    bool lower_bounded, upper_bounded;  // as the drive reports it; the lens itself always stops at 0 and 3200
    int speed;                          // units a frame
    double noise;                       // standard deviation of the measure, as a share of it
    bool two_peaks;                     // a second one, 0.6 times as high
    double most_lost;                   // share of searches that may give up, or end elsewhere
    double most_elsewhere;              // more than a step from the best position, without knowing it
};

constexpr int kTravel = 3200;

struct Outcome {
    bool ended = false, gave_up = false, elsewhere = false;
    int frames = 0;
};

/// One search, with the peak, its width and the start anywhere.
Outcome search_with(const LensKind& kind, std::mt19937& random) {
    const auto uniform = [&](double from, double to) {
        return from + (to - from) * static_cast<double>(random()) / 4294967296.0;
    };
    const double peak = uniform(0, kTravel), width = uniform(150, 800);
    double other = uniform(0, kTravel);
    if (std::abs(other - peak) < 800) other = peak + (peak < kTravel / 2 ? 800 : -800);
    const auto sharpness_at = [&](double position) {
        const auto hill = [&](double top) { return 1 / (1 + (position - top) * (position - top) / width / width); };
        const double clean = 0.05 + hill(peak) + (kind.two_peaks ? 0.6 * hill(other) : 0);
        double deviate = -6;  // nearly normal
        for (int i = 0; i < 12; ++i)
            deviate += uniform(0, 1);
        return clean * (1 + kind.noise * deviate);
    };

    FocusDrive drive{0, kTravel, static_cast<int>(uniform(0, kTravel)), kind.lower_bounded, kind.upper_bounded};
    int target = drive.position;
    FocusState search{};
    begin_focus_search(search, drive);
    Outcome outcome;
    while (!outcome.ended && ++outcome.frames < 20'000) {
        if (lens_at_rest(search, drive.position)) {
            const FocusMove move = advance_focus_search(search, drive, sharpness_at(drive.position));
            outcome.ended = move != FocusMove::kGo;
            outcome.gave_up = move == FocusMove::kGaveUp;
            target = static_cast<int>(std::clamp<std::int64_t>(search.af_target, 0, kTravel));
        }
        drive.position += std::clamp(target - drive.position, -kind.speed, kind.speed);
    }
    outcome.elsewhere = !outcome.gave_up && std::abs(drive.position - peak) > static_cast<double>(search.af_step);
    return outcome;
}

TEST(FocusSearch, FindsThePeakOfSimulatedLenses) {
    constexpr int kRuns = 1000, kFast = kTravel;
    // A drive without both limits steps by a 64th of where it stands: from near 0 it does not come far before it gives up.
    const LensKind kinds[] = {
        {"both limits", true, true, kFast, 0, false, 0, 0},
        {"lower limit only", true, false, kFast, 0, false, 0.35, 0.02},
        {"upper limit only", false, true, kFast, 0, false, 0.2, 0.02},
        {"no limits", false, false, kFast, 0, false, 0.2, 0.02},
        {"slow lens, 20 units a frame", true, true, 20, 0, false, 0, 0},
        {"noise 1 %", true, true, kFast, 0.01, false, 0.1, 0.1},
        {"noise 3 %", true, true, kFast, 0.03, false, 0.15, 0.15},
        {"noise 10 %", true, true, kFast, 0.10, false, 0.3, 0.3},
        {"two peaks", true, true, kFast, 0, true, 0.3, 0.3},
    };
    const bool print = std::getenv("TOVIX_PRINT_FOCUS_TABLE") != nullptr;
    if (print)
        std::printf("%-28s %8s %8s %10s %7s %7s %5s\n", "lens", "found", "gave up", "elsewhere", "mean", "median",
                    "most");
    for (const LensKind& kind : kinds) {
        std::mt19937 random(7);
        int gave_up = 0, elsewhere = 0;
        std::vector<int> frames;
        for (int run = 0; run < kRuns; ++run) {
            const Outcome outcome = search_with(kind, random);
            ASSERT_TRUE(outcome.ended) << kind.name;
            gave_up += outcome.gave_up, elsewhere += outcome.elsewhere;
            frames.push_back(outcome.frames);
        }
        std::sort(frames.begin(), frames.end());
        const auto share = [&](int count) { return 100.0 * count / kRuns; };
        if (print)
            std::printf("%-28s %6.1f %% %6.1f %% %8.1f %% %7.1f %7d %5d\n", kind.name, 100 - share(gave_up + elsewhere),
                        share(gave_up), share(elsewhere),
                        static_cast<double>(std::accumulate(frames.begin(), frames.end(), 0)) / kRuns,
                        frames[kRuns / 2], frames.back());
        EXPECT_LE(gave_up + elsewhere, kind.most_lost * kRuns) << kind.name;
        EXPECT_LE(elsewhere, kind.most_elsewhere * kRuns) << kind.name;
    }
}

}  // namespace
