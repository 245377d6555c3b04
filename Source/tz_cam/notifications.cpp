// SPDX-License-Identifier: Apache-2.0
// Registration of callbacks. Nothing calls them.
#include <algorithm>
#include <iterator>

#include "handle.h"
#include "report.h"

std::int32_t tovix_enable_callback_notification(_tovix* camera, std::uint32_t type, tovix_notification callback,
                                                void* context) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    const auto slot = std::ranges::find(camera->callbacks, 0u, &_tovix::Notification::type);
    if (slot == std::end(camera->callbacks)) return TOVIX_ENOSLOT;
    *slot = {callback, context, type};
    return static_cast<std::int32_t>(slot - std::begin(camera->callbacks));
}

std::int32_t tovix_disable_callback_notification(_tovix* camera, int id) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (id < 0 || id >= std::ssize(camera->callbacks) || camera->callbacks[id].type == 0) {
        std::fprintf(stderr, "error: invalid callback ID '%d' when disabling callback\n", id);
        return TOVIX_EINVAL;
    }
    camera->callbacks[id] = {};
    return TOVIX_OK;
}
