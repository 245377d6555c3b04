// SPDX-License-Identifier: Apache-2.0
// Every exported kernel, byte for byte: against the plain reference over all phases, flips, row orders, byte
// orders and tables, and against values worked out by hand.
#include <gtest/gtest.h>

#include "color_kernel_list.h"

namespace {

using namespace kernels;

/// The picture that a frame holds, as values of the output.
Mosaic source_mosaic(const Kernel& kernel, const Case& c) {
    Mosaic m(c.width, c.height, kernel.output == 48 ? 0xFFFF : 0xFF);
    for (int y = 0; y < c.height; ++y) {
        for (int x = 0; x < c.width; ++x) {
            const bool fields = c.has('i') || kernel.has('I');
            const int row = !fields ? y : y % 2 == 0 ? y / 2 : c.height / 2 + (y - 1) / 2;
            const auto i = static_cast<std::size_t>(row * c.width + x);
            int value;
            if (kernel.depth == 8) {
                value = c.has('l') ? kTable[c.frame[i]] : c.frame[i];
            } else {
                const int first = c.frame[2 * i], second = c.frame[2 * i + 1];
                const auto entry = 2 * static_cast<std::size_t>(first + 256 * second);
                value = c.has('m') ? 256 * first + second : first + 256 * second;
                if (c.has('l')) value = kTable[entry] + 256 * kTable[entry + 1];
                if (kernel.output != 48) value /= 256;
            }
            m.cell(x, y) = {value, (y % 2 == 0) == c.has('r'), ((x + y) % 2 == 0) == c.has('g')};
        }
    }
    return m;
}

constexpr int kGuard = 64;            // bytes before and after an image
using Images = std::array<Bytes, 2>;  // of two poisons, so that what must stay is seen to stay

/// What the guarded images hold after the kernel ran, by the plain reference.
void run_reference(const Kernel& kernel, const Case& c, Images& images) {
    const bool flip = c.has('f') || kernel.has('F'), top_down = c.has('t') || !kernel.has('t');
    const bool in_memory = kernel.order == kMemory || (kernel.order == kSelector && c.has('l'));
    const bool averaged = in_memory && kernel.method == Method::kEdgeHalvedCorners;
    const Method method = averaged ? Method::kEdge : kernel.method;
    const Mosaic source = source_mosaic(kernel, c);
    Mosaic stored = source;
    const auto source_x = [&](int x) { return flip ? c.width - 1 - x : x; };
    const auto source_y = [&](int y) { return top_down ? y : c.height - 1 - y; };
    for (int y = 0; y < c.height; ++y) {
        for (int x = 0; x < c.width; ++x)
            stored.cell(x, y) = source.cell(source_x(x), source_y(y));
    }
    for (int y = 0; y < c.height; ++y) {
        for (int x = 0; x < c.width; ++x) {
            for (int channel = 0; channel < std::min(kernel.channels, kernel.pixel()); ++channel) {
                const int value = in_memory ? colour_at(stored, method, x, y, channel)
                                            : colour_at(source, method, source_x(x), source_y(y), channel);
                const int in_row = (x * kernel.pixel() + channel) * kernel.bytes();
                const auto at = static_cast<std::size_t>(kGuard + y * kernel.stride(c.width) + in_row);
                for (Bytes& image : images) {
                    if (value >= 0) image[at] = static_cast<std::uint8_t>(value);
                    if (value >= 0 && kernel.bytes() == 2) image[at + 1] = static_cast<std::uint8_t>(value / 256);
                }
            }
        }
    }
}

testing::AssertionResult equal(const Kernel& kernel, const Case& c) {
    const auto size = static_cast<std::size_t>(c.height * kernel.stride(c.width) + 2 * kGuard);
    Images expected{Bytes(size, 0x5A), Bytes(size, 0xA5)};
    const void* source = c.frame.data();
    if (kernel.order == kSource && kernel.letters[3] == 'm' && !c.has('m')) source = &c.frame[1];  // aimed at the top
    if (kernel.order == kInPlace) {
        Kernel first = kernel;
        first.method = kernel.method == Method::kFourColour ? Method::kOwnPlane : Method::kOwn;
        run_reference(first, c, expected);
        source = nullptr;
    }
    Images images = expected;
    for (Bytes& image : images)
        kernel.run(c, kernel.letters, source, image.data() + kGuard);
    run_reference(kernel, c, expected);
    for (std::size_t i = 0; i < images.size(); ++i) {
        const auto [is, should] = std::mismatch(images[i].begin(), images[i].end(), expected[i].begin());
        if (is == images[i].end()) continue;
        return testing::AssertionFailure() << kernel.name << " " << c.width << "x" << c.height << " flags " << c.flags
                                           << ": byte " << is - images[i].begin() - kGuard << " of stride "
                                           << kernel.stride(c.width) << " is " << int{*is} << ", not " << int{*should};
    }
    return testing::AssertionSuccess();
}

/// Every combination of what the kernel can be told, on every size and kind of frame; stops at the first difference.
testing::AssertionResult always_equal(const Kernel& kernel) {
    std::string letters;  // that the case decides
    for (const char letter : std::string("rgftiml")) {
        if (kernel.has(letter)) letters += letter;
    }
    for (unsigned set = 0; set < 1U << letters.size(); ++set) {
        std::string flags;
        for (unsigned i = 0; i < letters.size(); ++i) {
            if (set >> i & 1U) flags += letters[i];
        }
        for (const auto& [width, height] :
             {std::array{2, 2}, {2, 4}, {4, 2}, {4, 4}, {2, 8}, {6, 8}, {10, 6}, {16, 10}}) {
            const auto bytes = static_cast<std::size_t>(width * height * kernel.depth / 8);
            // Any values; few, so that gradients tie and odd ones meet; black; white.
            for (const Bytes& frame :
                 {random_bytes(bytes, set, 256), random_bytes(bytes, set, 4), Bytes(bytes, 0), Bytes(bytes, 255)}) {
                if (const auto result = equal(kernel, {width, height, flags, frame}); !result) return result;
            }
        }
    }
    return testing::AssertionSuccess();
}

TEST(Kernels, EqualThePlainReference) {
    for (const Kernel& kernel : kKernels)
        EXPECT_TRUE(always_equal(kernel));
}

TEST(Kernels, LeaveSizesThatAreNoCellsAlone) {
    for (const Kernel& kernel : kKernels) {
        for (const auto& [width, height] : {std::array{0, 0}, {0, 2}, {2, 0}, {1, 2}, {2, 1}, {3, 4}, {4, 3}, {5, 5}}) {
            const Case c{width, height, {}, Bytes(64, 1)};
            Bytes image(256, 0x5A);
            kernel.run(c, kernel.letters, kernel.order == kInPlace ? nullptr : c.frame.data(), image.data());
            EXPECT_EQ(image, Bytes(256, 0x5A)) << kernel.name << " " << width << "x" << height;
        }
    }
}

/// Worked out on paper. R G / G B unless the kernel has no phase.
TEST(Kernels, GiveWhatWasWorkedOutByHand) {
    const struct {
        const char* what;
        const char* kernel;
        Case c;
        Bytes image;
    } kCases[] = {
        {"nearest: one cell for all colours", "NearestNeighbor Direct", Case{2, 2, "rt", {10, 20, 30, 40}},
         Bytes{10, 20, 40, 10, 20, 40, 10, 30, 40, 10, 30, 40}},
        {"direct edge: a red corner halves first", "EdgeDetectMove Direct", Case{2, 2, "rt", {9, 3, 5, 7}},
         Bytes{9, 3, 7, 9, 3, 7, 9, 5, 7, 9, 4, 7}},
        {"edge in two passes: it averages", "EdgeDetectMoveInPlace", Case{2, 2, "rt", {9, 3, 5, 7}},
         Bytes{9, 4, 7, 9, 3, 7, 9, 5, 7, 9, 4, 7}},
        {"Quelt: greens averaged where there is a cell", "QueltMoveInPlace", Case{2, 2, "rt", {10, 20, 30, 40}},
         Bytes{10, 25, 40, 10, 20, 40, 10, 30, 40, 10, 25, 40}},
        {"four colours: the greens stay apart", "FourColorsInterMove32InPlace", Case{2, 2, "rt", {10, 20, 30, 40}},
         Bytes{10, 20, 40, 30, 10, 20, 40, 30, 10, 20, 40, 30, 10, 20, 40, 30}},
        {"fields: rows 0, 2, 1, 3", "MonoToMonoMoveDeinterl", Case{2, 4, "t", {1, 1, 2, 2, 3, 3, 4, 4}},
         Bytes{1, 1, 3, 3, 2, 2, 4, 4}},
        {"words, the most significant byte first", "MonoToMonoMove16to8", Case{2, 2, "tm", {1, 2, 3, 4, 5, 6, 7, 8}},
         Bytes{1, 3, 0, 0, 5, 7, 0, 0}},
        {"words, the other way round", "MonoToMonoMove16to8", Case{2, 2, "t", {1, 2, 3, 4, 5, 6, 7, 8}},
         Bytes{2, 4, 0, 0, 6, 8, 0, 0}},
        {"two flips: the last sample first, and padding", "MonoToMonoMove", Case{2, 2, "f", {1, 2, 3, 4}},
         Bytes{4, 3, 0, 0, 2, 1, 0, 0}},
    };
    for (const auto& [what, name, c, expected] : kCases) {
        const Kernel& kernel = find(name);
        Bytes image(expected.size());
        kernel.run(c, kernel.letters, c.frame.data(), image.data());
        EXPECT_EQ(image, expected) << what;
    }
}

TEST(Kernels, FlipFinishedImages) {
    Bytes image{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    FlipBgrAround(image.data(), 2, 2, 0, 2);
    EXPECT_EQ(image, (Bytes{7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6})) << "rows reversed";
    image = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    FlipBgrAround32(image.data(), 2, 2, -1, 1);
    EXPECT_EQ(image, (Bytes{13, 14, 15, 4, 9, 10, 11, 8, 5, 6, 7, 12, 1, 2, 3, 16})) << "half a turn, but for byte 3";
}

TEST(Kernels, ZurnoFollowsTheFlatterDirectionAndItsBend) {
    Bytes frame(36, 0), image(108);
    const auto set = [&](std::size_t x, std::size_t y, std::uint8_t value) { frame[y * 6 + x] = value; };
    // Reds bend by 20 across and by 0 down; greens change by 0 across and by 40 down.
    set(2, 2, 100), set(0, 2, 90), set(4, 2, 90), set(2, 0, 100), set(2, 4, 100);
    set(1, 2, 50), set(3, 2, 50), set(2, 1, 40), set(2, 3, 80);
    ZurnoMove(image.data(), frame.data(), 6, 6, 1, 0, 0, 1, 0, nullptr);
    EXPECT_EQ(image[(2 * 6 + 2) * 3 + 1], 55);
}

}  // namespace
