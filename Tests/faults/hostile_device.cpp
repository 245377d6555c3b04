// SPDX-License-Identifier: Apache-2.0
#include "hostile_device.h"

#include <cstdio>
#include <random>
#include <set>

#include "scenarios.h"

namespace tovix::faults {

namespace {

constexpr std::uint32_t kLargestFrame = 1 << 24;  // bytes; larger ones need only memory and time
constexpr unsigned kSeed = 1;

struct Lie {
    const char* name;
    std::uint32_t (*value)(int bits);
};
std::mt19937 dice(kSeed);
constexpr std::uint32_t largest(int bits) {
    return UINT32_MAX >> (32 - bits);
}
constexpr Lie kLies[] = {
    {"0", [](int) { return 0u; }},
    {"1", [](int) { return 1u; }},
    {"largest", [](int bits) { return largest(bits); }},
    {"largest less one", [](int bits) { return largest(bits) - 1; }},
    {"sign bit", [](int bits) { return 1u << (bits - 1); }},
    {"largest signed", [](int bits) { return largest(bits) >> 1; }},
    {"random", [](int bits) { return static_cast<std::uint32_t>(dice()) & largest(bits); }},
};

/// A life of a camera, whatever it says of itself.
void live(World& world) {
    world(kInit, TOVIX_RESOURCES);
    tovix_version records[2];
    std::uint32_t count = 2;
    world(kEnumerate, records, &count);
    world(kOpenAny, &world.camera);
    if (world.camera == nullptr) return;
    tovix_image_format image{};
    world(kGetImageFormat, world.camera, &image);
    if (image.image_size <= kLargestFrame && world(kEnable, world.camera) == 0) {
        world.waiting(kStart, world.camera);
        world.waiting(kStop, world.camera);
        world.waiting(kDisable, world.camera);
    }
    sweep_settings(world);
    if (world(kSetFormat, world.camera, &kSmallFormat) == 0 && world.start()) adjust(world);
    world.close();
}

/// Fields of an answer: registers are words; descriptors are bytes.
std::vector<Forgery> fields_of(const Answered& answer) {
    std::vector<Forgery> fields;
    const bool words = (answer.request_type & 0x60) != 0;
    const std::uint32_t bytes = words ? 4 : 1;
    for (std::uint32_t offset = 0; offset + bytes <= answer.length; offset += bytes)
        fields.push_back({answer, offset, bytes, 0});
    return fields;
}

Findings run_with(const std::function<void(FaultyBus&)>& forge) {
    Findings findings;
    World world(findings);
    world.attach("mira13c", simulator::DeviceOptions::State::kWithoutFpga);
    forge(world.bus());
    live(world);
    world.bus().forge(std::nullopt);
    world.bus().forge_identity({});
    world.prove_health();
    return findings;
}

/// A field of what the host read when the device came.
struct IdentityField {
    const char* name;
    int bits;
    void (*set)(platform::DeviceIdentity& identity, std::uint32_t value);
};
constexpr IdentityField kIdentityFields[] = {
    {"vendor", 16, [](auto& identity, std::uint32_t value) { identity.vendor_id = static_cast<UInt16>(value); }},
    {"product", 16, [](auto& identity, std::uint32_t value) { identity.product_id = static_cast<UInt16>(value); }},
    {"release", 16, [](auto& identity, std::uint32_t value) { identity.release = static_cast<UInt16>(value); }},
    {"subclass", 8, [](auto& identity, std::uint32_t value) { identity.subclass = static_cast<UInt8>(value); }},
    {"speed", 8, [](auto& identity, std::uint32_t value) { identity.speed = static_cast<UInt8>(value); }},
    {"product string", 8,
     [](auto& identity, std::uint32_t value) { identity.product_string_index = static_cast<UInt8>(value); }},
    {"serial string", 8,
     [](auto& identity, std::uint32_t value) { identity.serial_string_index = static_cast<UInt8>(value); }},
};

}  // namespace

void forge_every_field(const std::function<void(const std::string& name, const std::function<Findings()>& run)>& each) {
    std::set<Answered> answers;
    each("hostile/nothing forged", [&] {
        answers.clear();
        return run_with([&](FaultyBus& bus) { bus.write_down_answers(&answers); });
    });
    for (const Answered& answer : answers) {
        for (Forgery field : fields_of(answer)) {
            for (const Lie& lie : kLies) {
                char name[120];
                std::snprintf(name, sizeof name, "hostile/%02X %02X %04X %04X, byte %u/%s", answer.request_type,
                              answer.request, answer.value, answer.index, field.offset, lie.name);
                field.value = lie.value(static_cast<int>(8 * field.bytes));
                each(name, [&] { return run_with([&](FaultyBus& bus) { bus.forge(field); }); });
            }
        }
    }
    for (const IdentityField& field : kIdentityFields) {
        for (const Lie& lie : kLies) {
            const std::uint32_t value = lie.value(field.bits);
            each(std::string("hostile/") + field.name + "/" + lie.name, [&] {
                return run_with([&](FaultyBus& bus) {
                    bus.forge_identity([&](platform::DeviceIdentity& identity) { field.set(identity, value); });
                });
            });
        }
    }
}

}  // namespace tovix::faults
