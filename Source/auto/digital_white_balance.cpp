// SPDX-License-Identifier: Apache-2.0
// White balance by the conversion object alone.
#include "auto.h"
#include "handle.h"
#include "report.h"
#include "tovixapi/vorm.h"

std::int32_t AdjustWhiteBalanceForRGBvalues(_tovix* camera, double red, double green, double blue) {
    if (const std::int32_t result = tz_usb_create_vorm(camera); result < 0) return result;
    return camera->vorm->AdjustWhiteBalanceForRGBvalues(red, green, blue);
}

std::int32_t tovix_digital_whitebalance_ex(_tovix* camera, const std::uint8_t* frame, int x, int y, int width,
                                           int height, float red_ratio, float blue_ratio) {
    if (refuse_null(camera) || frame == nullptr) return TOVIX_EFAIL;
    float red = 0, green = 0, blue = 0;
    const std::int32_t result = tovix_get_whitebalance_adjustment_ex(camera, frame, red_ratio, blue_ratio, x, y, width,
                                                                     height, &red, &green, &blue);
    return result < 0 ? result : AdjustWhiteBalanceForRGBvalues(camera, red, green, blue);
}

std::int32_t tovix_digital_whitebalance(_tovix* camera, const std::uint8_t* frame, int x, int y, int width,
                                        int height) {
    return tovix_digital_whitebalance_ex(camera, frame, x, y, width, height, 1.0f, 1.0f);
}
