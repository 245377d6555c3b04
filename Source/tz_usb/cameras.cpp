// SPDX-License-Identifier: Apache-2.0
// Enumeration, open and close, and the identity of an open camera.
#include <cstdlib>
#include <cstring>
#include <new>

#include "report.h"
#include "search.h"
#include "tovixapi/vorm.h"

namespace {

struct EnumContext {
    tovix_version* records;
    std::int32_t capacity;
    std::int32_t count;
};

struct OpenContext {
    _tovix* handle;
    const tovix_version* wanted;
};

/// Pipe 1 carries FPGA images in this setting of models with an FPGA, and frames in that of models without.
constexpr UInt8 kSettingOne = 1;
constexpr UInt8 kSettingTwo = 2;

void usb_enum_camera(EnumContext* context, io_iterator_t iterator) {
    while (const io_service_t service = IOIteratorNext(iterator)) {
        _tovix camera;
        if (usb_open_device(&camera, service) != TOVIX_OK) {
            std::fprintf(stderr, "error: unable to open USB device during enumeration\n");
            continue;
        }
        if (context->count < context->capacity) tovix_get_version(&camera, &context->records[context->count]);
        ++context->count;
        usb_close_device(&camera);
    }
}

/// Ready to stream: on the setting whose pipe 1 carries frames, video off, pipe clear.
void prepare_to_stream(_tovix* camera) {
    const bool has_fpga = camera->camera != nullptr && camera->camera->fpga_file != nullptr;
    (*camera->interface)->SetAlternateInterface(camera->interface, has_fpga ? kSettingTwo : kSettingOne);
    if (tz_usb_write_tovix_u32(camera, TOVIX_VIDEO_SWITCH, 0) < 0)
        std::fprintf(stderr, "error: unable to send stop video command\n");
    (*camera->interface)->ClearPipeStallBothEnds(camera->interface, 1);
}

void usb_find_and_open_camera(OpenContext* context, io_iterator_t iterator) {
    while (const io_service_t service = IOIteratorNext(iterator)) {
        _tovix camera;
        if (usb_open_device(&camera, service) != TOVIX_OK) {
            std::fprintf(stderr, "error: unable to open usb device\n");
            continue;
        }
        const std::uint32_t wanted = context->wanted->serial_number;
        if (wanted != 0 && wanted != camera.serial_number) {
            usb_close_device(&camera);
            continue;
        }
        context->handle = new (std::nothrow) _tovix(camera);
        if (context->handle != nullptr) {
            prepare_to_stream(context->handle);
        } else {
            usb_close_device(&camera);
        }
        return;
    }
}

}  // namespace

std::int32_t tovix_enum_cameras(tovix_version* records, std::uint32_t* count) {
    if (count == nullptr || (records == nullptr && *count != 0)) return TOVIX_EFAIL;
    RegistryPort port;
    if (!port.open()) return TOVIX_EFAIL;
    EnumContext context{records, static_cast<std::int32_t>(std::min(*count, std::uint32_t{INT32_MAX})), 0};
    const std::int32_t result = for_each_pair([&](const camera_id& row) {
        return usb_init_cameras_by_vid_and_pid<EnumContext>(port.get(), row.vendor_id, row.product_id, usb_enum_camera,
                                                            &context);
    });
    if (result < 0) return result;
    *count = static_cast<std::uint32_t>(context.count);
    return context.count;
}

std::int32_t tovix_camera_open(_tovix** camera, const tovix_version* wanted) {
    if (camera == nullptr || wanted == nullptr) return TOVIX_EFAIL;
    RegistryPort port;
    if (!port.open()) return TOVIX_EFAIL;
    const camera_id* const row = tz_camera_find(static_cast<std::uint16_t>(wanted->product_id), kAnyRelease);
    if (row == nullptr) {
        std::fprintf(stderr, "error: unable to find specified camera");
        return TOVIX_EFAIL;
    }
    OpenContext context{nullptr, wanted};
    const std::int32_t result = usb_init_cameras_by_vid_and_pid<OpenContext>(
        port.get(), row->vendor_id, row->product_id, usb_find_and_open_camera, &context);
    if (result < 0) return result;
    *camera = context.handle;
    return TOVIX_OK;
}

std::int32_t tovix_camera_open_by_pid(_tovix** camera, int product_id) {
    const tovix_version wanted{.reserved = 0,
                               .product_id = static_cast<std::uint32_t>(product_id),
                               .serial_number = 0,
                               .release_number = 0,
                               .firmware_version = 0,
                               .high_speed = 0};
    return tovix_camera_open(camera, &wanted);
}

std::int32_t tovix_camera_open_any(_tovix** camera) {
    tovix_version first{};
    std::uint32_t count = 1;
    if (const std::int32_t result = tovix_enum_cameras(&first, &count); result < 0) return result;
    if (count == 0) return TOVIX_EFAIL;
    return tovix_camera_open(camera, &first);
}

std::int32_t tovix_camera_close(_tovix** camera) {
    if (camera == nullptr || *camera == nullptr) return TOVIX_OK;
    _tovix* const closed = std::exchange(*camera, nullptr);
    if (closed->stream.stream_running) tovix_stop_streaming(closed);
    tovix_disable_streaming(closed);
    usb_stream_close(closed->stream);
    usb_close_device(closed);
    delete closed->vorm;
    delete closed;
    return TOVIX_OK;
}

std::int32_t tovix_get_version(_tovix* camera, tovix_version* out) {
    if (refuse_null(camera) || out == nullptr) return TOVIX_EFAIL;
    *out = tovix_version{
        .reserved = 0,
        .product_id = camera->product_id,
        .serial_number = camera->serial_number,
        .release_number = camera->release_number,
        .firmware_version = camera->firmware_version,
        .high_speed = camera->speed == 2,
    };
    return TOVIX_OK;
}

std::int32_t tovix_get_model_name(_tovix* camera, char* name, int size) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    const std::size_t needed = std::strlen(camera->model_name) + 1;
    if (name == nullptr || size < 0 || static_cast<std::size_t>(size) < needed) {
        std::fprintf(stderr, "error: provided string is too small for model name");
        return TOVIX_EINVAL;
    }
    std::memcpy(name, camera->model_name, needed);
    return TOVIX_OK;
}
