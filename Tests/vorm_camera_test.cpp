// SPDX-License-Identifier: Apache-2.0
// The conversion object of a camera handle: how it is made, when it converts, and that closing frees it. And
// what every call does when memory runs out.
#include <gtest/gtest.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "handle.h"
#include "stderr_capture.h"

namespace {

long allocations_left = -1;  // negative: no limit

void* allocate(std::size_t bytes) {
    if (allocations_left == 0) return nullptr;
    if (allocations_left > 0) --allocations_left;
    return std::malloc(bytes);
}
/// Inlined, it would look to GCC like a mismatch of new and free.
[[gnu::noinline]] void give_back(void* memory) {
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t bytes) {
    if (void* const memory = allocate(bytes)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t bytes) {
    return operator new(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return allocate(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return allocate(bytes);
}
void operator delete(void* memory) noexcept {
    give_back(memory);
}
void operator delete[](void* memory) noexcept {
    give_back(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    give_back(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    give_back(memory);
}

namespace {

/// The result of `call` when only so many allocations succeed.
int with_memory_for(long allocations, const std::function<int()>& call) {
    allocations_left = allocations;
    const int result = call();
    allocations_left = -1;
    return result;
}

using Entry = std::array<short, 10>;  // a matrix_id and nine coefficients

/// A closed camera of a model with this data.
struct Camera {
    std::vector<unsigned char> data;
    camera_id row{};
    _tovix* handle = new _tovix{};

    /// The last entry may be cut short by so many bytes.
    explicit Camera(const std::vector<Entry>& entries, std::uint32_t cut_off = 0) {
        const std::uint32_t bytes = static_cast<std::uint32_t>(entries.size() * sizeof(Entry)) - cut_off;
        const std::uint32_t head[2] = {1, bytes};
        data.resize(8 + bytes + 4);
        if (!entries.empty()) {
            std::memcpy(data.data(), head, 8);
            std::memcpy(data.data() + 8, entries.data(), bytes);
        }
        row.model_data = data.data(), row.model_data_size = static_cast<std::uint32_t>(data.size());
        handle->camera = &row;
    }
    ~Camera() {
        EXPECT_EQ(tovix_camera_close(&handle), 0);
        EXPECT_EQ(handle, nullptr);
    }
    short const* matrix(unsigned id) const { return handle->vorm->model_matrices[id]; }
};

constexpr Entry kSwap{2, 1, 2, 3, 4, 5, 6, 7, 8, 9};

TEST(VormCamera, IsMadeWithTheMatricesOfTheModel) {
    Entry bad = kSwap, negative = kSwap, third = kSwap;
    bad[0] = 16, negative[0] = -1, third[0] = 3;
    Camera camera({kSwap, third, {4}}, 1);
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_create_vorm(camera.handle), 0); }), "");
    EXPECT_EQ(camera.matrix(1), nullptr);
    EXPECT_EQ(camera.matrix(2)[0], 9);
    EXPECT_EQ(camera.matrix(3)[10], 1);
    EXPECT_EQ(camera.matrix(4), nullptr) << "not a whole entry";
    CVorm* const made = camera.handle->vorm;
    EXPECT_EQ(tz_usb_create_vorm(camera.handle), 0);
    EXPECT_EQ(camera.handle->vorm, made);
    for (const Entry& refused : {bad, negative}) {
        Camera stops({kSwap, refused, third});
        EXPECT_EQ(tz_usb_create_vorm(stops.handle), 0);
        EXPECT_NE(stops.matrix(2), nullptr);
        EXPECT_EQ(stops.matrix(3), nullptr);
    }
    Camera without({});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_create_vorm(without.handle), -14); }),
              "error: unable to get model data matrices\n");
    EXPECT_NE(without.handle->vorm, nullptr);
    EXPECT_EQ(tz_usb_create_vorm(without.handle), 0);
    EXPECT_EQ(tz_usb_create_vorm(nullptr), -1);
}

TEST(VormCamera, ConvertsWhileTheStreamRuns) {
    Camera camera({kSwap});
    const unsigned char frame[4] = {100, 100, 100, 100};
    unsigned char image[12] = {};
    const tovix_image_format format{52, 2, 2, 0, 4, 0, {}, 0, {}};
    const tovix_conversion_params params{12, 1, 14, 0, 0, 0, 0, 0, 0, 0, 0};
    StreamState& stream = camera.handle->stream;
    const auto convert = [&] { return tovix_convert_frame_to_rgb(camera.handle, image, frame, &format, &params); };
    for (const auto& [running, stopping] : {std::pair{false, false}, {false, true}, {true, true}}) {
        stream.stream_running.set(running), stream.stream_stopping.set(stopping);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(convert(), -22); }), "error: stream is already running\n");
        EXPECT_EQ(image[0], 0);
    }
    stream.stream_running.set(true), stream.stream_stopping.set(false);
    EXPECT_EQ(convert(), 0);
    EXPECT_EQ(std::count(image, image + 12, 100), 12);
    Camera without({});
    without.handle->stream.stream_running.set(true);
    const auto first = [&] { return tovix_convert_frame_to_rgb(without.handle, image, frame, &format, nullptr); };
    EXPECT_EQ(first(), -14);
    EXPECT_EQ(first(), 0);
    EXPECT_EQ(tovix_convert_frame_to_rgb(nullptr, image, frame, &format, nullptr), -1);
    stream.stream_running.set(false), without.handle->stream.stream_running.set(false);
}

TEST(VormMemory, RunsOutWithoutHarm) {
    for (long allocations = 0; allocations < 2; ++allocations) {  // the object, its only matrix
        Camera camera({kSwap});
        const auto create = [&] { return tz_usb_create_vorm(camera.handle); };
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(with_memory_for(allocations, create), -12); }),
                  "error: unable to create conversion object\n");
        EXPECT_EQ(camera.handle->vorm, nullptr);
    }
    CVorm vorm;
    unsigned char bytes[256] = {}, image[12] = {};
    short nine[9] = {}, weights[12];
    const tovix_image_format format{52, 2, 2, 1, 8, 0, {}, 0, {}};
    const auto convert = [&] { return vorm.ConvertToRgb(image, bytes, 24, &format, nullptr); };
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.SetGamma(50, 15); }), -12);
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.SetupLUT(bytes, 256, 15); }), -12);
    EXPECT_EQ(vorm.settings.lut_size, 0u);
    EXPECT_EQ(vorm.SpecifyMatrix(1, nine), 0);
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.SpecifyMatrix(1, nine); }), -12);
    EXPECT_EQ(vorm.model_matrices[1], nullptr);
    for (long allocations = 0; with_memory_for(allocations, convert) != 0; ++allocations)
        ASSERT_LT(allocations, 100);
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.SetHue(30); }), -12);
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.GetCurrentMatrix(weights); }), -12);
    EXPECT_EQ(with_memory_for(0, [&] { return vorm.AdjustWhiteBalanceForRGBvalues(1, 2, 3); }), -12);
    CVorm untouched_by_failure;
    untouched_by_failure.SetHue(30);
    short expected[12];
    EXPECT_EQ(vorm.GetCurrentMatrix(weights) | untouched_by_failure.GetCurrentMatrix(expected), 0);
    EXPECT_TRUE(std::equal(weights, weights + 12, expected));

    vorm.SetupLUT(bytes, 256, 15);  // an allocation more, for the 16-bit table
    std::fill_n(image, 12, 77);
    long allocations = 0;
    for (; with_memory_for(allocations, convert) != 0; ++allocations)
        ASSERT_TRUE(std::count(image, image + 12, 77) == 12 && allocations < 100);
    EXPECT_GT(allocations, 1);
    EXPECT_EQ(vorm.settings.lut16, nullptr);
}

}  // namespace
