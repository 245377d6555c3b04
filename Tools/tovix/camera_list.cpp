// SPDX-License-Identifier: Apache-2.0
#include "camera_list.h"

#include "failure.h"

namespace {

std::string list_text(const std::vector<ListedCamera>& cameras) {
    std::string out;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        if (i != 0) out += ", ";
        out += text("%zu %s (serial %u)", i, cameras[i].model.c_str(), cameras[i].identity.serial_number);
    }
    return out;
}

}  // namespace

const ListedCamera& select_camera(const std::vector<ListedCamera>& cameras, const std::string& selector) {
    if (selector.empty()) return cameras.at(0);
    // A number that is one camera's index and another one's serial number names both, so it is refused.
    std::vector<const ListedCamera*> by_number, by_model, by_prefix;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        const ListedCamera& camera = cameras[i];
        if (selector == std::to_string(i) || selector == std::to_string(camera.identity.serial_number))
            by_number.push_back(&camera);
        if (camera.model == selector) by_model.push_back(&camera);
        if (camera.model.starts_with(selector)) by_prefix.push_back(&camera);
    }
    for (const auto& found : {by_number, by_model, by_prefix}) {
        if (found.size() == 1) return *found.front();
        if (found.empty()) continue;
        throw Failure("more than one camera is '" + printable(selector) +
                      "'; choose by index or serial number from: " + list_text(cameras));
    }
    throw Failure("no camera is '" + printable(selector) + "'; there is: " + list_text(cameras));
}
