// SPDX-License-Identifier: Apache-2.0
// The camera's messages: numbered blocks of bytes that go through one window of register addresses.
#include <algorithm>

#include "camera_properties.h"
#include "report.h"

namespace {

constexpr std::uint32_t kMessages = 32;  // one bit each in the register that tells which are supported
constexpr int kWindowBytes = 0x10000 - TOVIX_MSG_DATA;

/// The largest piece that goes in one transfer. Cameras take their tone curve in smaller ones.
int piece_bytes(std::uint32_t message) {
    return message == kToneCurveMessage ? 64 : 256;
}

[[nodiscard]] std::int32_t select_message(_tovix* camera, std::uint32_t message) {
    std::uint32_t supported = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, TOVIX_MSG_MASK, &supported); result < 0)
        return result;
    if (message >= kMessages || (supported >> message & 1) == 0) {
        std::fprintf(stderr, "tovix message %u is not supported\n", message);
        return TOVIX_EINVAL;
    }
    return tz_usb_write_tovix_u32(camera, TOVIX_MSG_SELECT, message);
}

}  // namespace

std::int32_t cam_handle_message(_tovix* camera, std::uint32_t message, std::uint8_t* data, int length, int read) {
    if (length < 0 || length > kWindowBytes || (data == nullptr && length > 0)) return TOVIX_EINVAL;
    if (const std::int32_t result = select_message(camera, message); result != TOVIX_OK) return result;
    // An empty message is an empty access; the transport has none to offer and refuses it.
    if (length == 0) return tz_usb_write_tovix_array(camera, TOVIX_MSG_DATA, nullptr, 0);
    for (int done = 0; done < length;) {
        const int piece = std::min(length - done, piece_bytes(message));
        const auto address = static_cast<std::uint32_t>(TOVIX_MSG_DATA + done);
        const auto bytes = static_cast<std::uint32_t>(piece);
        const std::int32_t result = read != 0 ? tz_usb_read_tovix_bytes(camera, address, data + done, bytes)
                                              : tz_usb_write_tovix_bytes(camera, address, data + done, bytes);
        if (result != TOVIX_OK) return result;
        done += piece;
    }
    return TOVIX_OK;
}

std::int32_t cam_read_message(_tovix* camera, std::uint32_t message, std::uint8_t* data, int length) {
    return cam_handle_message(camera, message, data, length, 1);
}

std::int32_t cam_write_message(_tovix* camera, std::uint32_t message, const std::uint8_t* data, int length) {
    return cam_handle_message(camera, message, const_cast<std::uint8_t*>(data), length, 0);  // which leaves it alone
}
