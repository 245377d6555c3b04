// SPDX-License-Identifier: Apache-2.0
#include "scenarios.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "handle.h"

namespace tovix::faults {

namespace {

using State = simulator::DeviceOptions::State;

void attach_bare(World& world) {
    world.attach("mira13c", State::kBare);
}

void attach_one(World& world) {
    world.attach("mira13c", State::kReady);
}

void attach_three(World& world) {
    for (const char* model : {"mira13c", "lyra14c-2", "atlas13c"})
        world.attach(model, State::kReady);
}

void open_one(World& world) {
    attach_one(world);
    world.expect(world.open(), "the camera opened");
}

void start_one(World& world) {
    open_one(world);
    world.expect(world.start(), "the stream started");
}

// --------------------------------------------------------------------------------------------------------------------

void bring_up(World& world) {
    world(kInit, TOVIX_RESOURCES);
}

void enumerate_three(World& world) {
    constexpr std::uint32_t kRoom = 4;
    tovix_version records[kRoom] = {};
    std::uint32_t count = kRoom;
    const std::int32_t found = world(kEnumerate, records, &count);
    world.expect(count == (found < 0 ? kRoom : static_cast<std::uint32_t>(found)), "the count is that of the result");
    world.expect(found <= 3, "no camera was counted twice");
}

void open_and_close(World& world) {
    if (world.open()) {
        tovix_version version{};
        char name[32];
        world(kGetVersion, world.camera, &version);
        world(kGetModelName, world.camera, name, static_cast<int>(sizeof name));
        world.expect(std::memchr(name, '\0', sizeof name) != nullptr, "a name ends");
    }
    world.close();
}

void sweep_properties(World& world) {
    for (std::int32_t i = 0; i < tovix_property_count; ++i) {
        const tovix_property_info& property = tovix_properties[i];
        int min = 7, max = 7, value = 7;
        std::uint32_t flags = 7;
        if (world(kPropertyRange, world.camera, property.property, &min, &max, &value, &flags) < 0 &&
            world.camera->vorm != nullptr) {
            world.expect(min == 0 && max == 0 && value == 0 && flags == 0, "a failed read gives zeros");
        }
        world(kPropertyGet, world.camera, property.property, &value, &flags);
        world(kPropertySet, world.camera, property.property, value, flags);
    }
}

void sweep_formats(World& world) {
    for (const std::uint16_t factor : std::initializer_list<std::uint16_t>{2, 1}) {
        for (const std::uint32_t offset : {8u, 0u}) {
            const _tovix_frame_format format{.x_offset = offset,
                                             .y_offset = offset,
                                             .width = kFrameWidth,
                                             .height = kFrameHeight,
                                             .pixel_format = 0,
                                             .subsample_x = factor,
                                             .reserved_x = 0,
                                             .subsample_y = factor,
                                             .reserved_y = 0};
            world(kSetFormat, world.camera, &format);
            _tovix_frame_format taken{};
            world(kGetFormat, world.camera, &taken);
        }
    }
    std::uint32_t rates[64], rate = 0;
    const std::int32_t count = world(kEnumRates, world.camera, rates, 64);
    for (std::int32_t i = 0; i < count; ++i) {
        world(kSetRate, world.camera, rates[i]);
        world(kGetRate, world.camera, &rate);
    }
    tovix_image_format image{};
    world(kGetImageFormat, world.camera, &image);
}

}  // namespace

void sweep_settings(World& world) {
    sweep_properties(world);
    sweep_formats(world);
}

namespace {

// --------------------------------------------------------------------------------------------------------------------

constexpr int kFrames = 20;

/// Take frames until there were enough or no more can come. Every third is held until the one after the next has come.
void take_frames(World& world, std::atomic<int>& taken) {
    std::int32_t held = -1;
    const auto let_go = [&] {
        if (held >= 0) world(kRelease, world.camera, std::exchange(held, -1));
    };
    while (taken < kFrames) {
        const std::int32_t index = world(kWait, world.camera);
        if (index == TOVIX_EINVAL) {  // the newest frame is being overwritten: too many are held
            let_go();
            world.bus().pass(kFramePeriodUs);
            continue;
        }
        if (index < 0) break;
        world.check_frame(index);
        const bool hold = ++taken % 3 == 0 && held < 0;
        if (hold) {
            held = index;
        } else {
            world(kRelease, world.camera, index);
            if (taken % 3 == 1) let_go();
        }
    }
    let_go();
}

void stream_frames(World& world) {
    if (!world.start()) return;
    std::atomic<int> taken{0};
    {
        const Passage passage(world.bus());
        const auto take_counted = [&] {
            const Counted counted;
            take_frames(world, taken);
        };
        std::jthread waiter = [&] {
            const Uncounted own;
            return std::jthread(take_counted);
        }();
        take_frames(world, taken);
        waiter.join();
    }
    world.waiting(kStop, world.camera);
    world.waiting(kDisable, world.camera);
}

void stop_and_close(World& world) {
    const std::int32_t index = world.waiting(kWait, world.camera);
    world.waiting(kStop, world.camera);
    if (index >= 0) world(kRelease, world.camera, index);
    world.waiting(kDisable, world.camera);
    world.close();
}

// --------------------------------------------------------------------------------------------------------------------

/// Do something with the next frame.
void with_frame(World& world, const auto& use) {
    const std::int32_t index = world.wait_for_frame();
    if (index < 0) return;
    use(tovix_get_buffer_address(world.camera, index));
    world(kRelease, world.camera, index);
}

}  // namespace

void adjust(World& world) {
    constexpr int kWidth = kFrameWidth, kHeight = kFrameHeight;
    using Frame = const std::uint8_t*;
    const auto each = [&](const auto& call) {
        with_frame(world, [&](Frame frame) { world(call, world.camera, frame, 0, 0, kWidth, kHeight); });
    };
    with_frame(world, [&](Frame frame) { world(kAutoExposure, world.camera, 100, frame, 0, 0, kWidth, kHeight, 0.0); });
    with_frame(world, [&](Frame frame) { world(kAutoGain, world.camera, 100, frame, 0, 0, kWidth, kHeight); });
    with_frame(world, [&](Frame frame) { world(kAutoIris, world.camera, 100, frame, 0, 0, kWidth, kHeight); });
    each(kWhiteBalance);
    each(kWhiteBalanceStep);
    each(kDigitalWhiteBalance);
    world(kFocusStart, world.camera, 0, 0, kWidth, kHeight);
    with_frame(world, [&](Frame frame) {
        world(kFocusProcess, world.camera, frame);
        tovix_image_format format{};
        if (world(kGetImageFormat, world.camera, &format) < 0) return;
        static std::uint8_t image[3 * kWidth * kHeight];
        world(kConvert, world.camera, image, frame, &format, nullptr);
    });
}

namespace {

constexpr Scenario kScenarios[] = {
    {"bring-up", &attach_bare, &bring_up, /*beside_others=*/false},
    {"enumerate three", &attach_three, &enumerate_three, /*beside_others=*/false},
    {"open", &attach_one, &open_and_close},
    {"properties and formats", &open_one, &sweep_settings},
    {"stream", &open_one, &stream_frames},
    {"stop and close", &start_one, &stop_and_close},
    {"adjustment", &start_one, &adjust},
#ifdef TOVIX_WITH_TOOL
    {"capture", &attach_one, &capture, /*beside_others=*/false},
#endif
};

}  // namespace

std::span<const Scenario> scenarios() {
    return kScenarios;
}

}  // namespace tovix::faults
