// SPDX-License-Identifier: Apache-2.0
// A row of the camera table with any model data and file names: the record that is looked for, the conversion object
// that is made of the matrices, and the path of a file.
#include "model_data.h"

#include <tovixapi/vorm.h>

#include "camera_table.h"
#include "handle.h"
#include "target.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto release = input.number<std::uint16_t>();
    const auto tag = input.number<std::uint8_t>();
    const auto characters = input.take(input.up_to(400));
    const std::string name(characters.begin(), characters.end());
    const Block block(input.rest());
    camera_id row{};
    row.firmware_file = name.c_str();
    row.model_data = block.data();
    row.model_data_size = static_cast<std::uint32_t>(block.size());

    const void* value = nullptr;
    std::uint32_t length = 0;
    if (find_model_data(&row, tag, &value, &length) == TOVIX_OK) {
        const auto* const first = static_cast<const std::uint8_t*>(value);
        require(first >= block.data() && length <= static_cast<std::size_t>(block.data() + block.size() - first),
                "a record lies in its block");
    }
    const ResourcePath path = resource_path(row.firmware_file, release);
    require(std::memchr(path.text, '\0', sizeof path.text) != nullptr, "a path ends");

    _tovix camera{};
    camera.camera = &row;
    if (tz_usb_create_vorm(&camera) == TOVIX_OK) {
        camera.vorm->CorrectionMatrixSet(TOVIX_MATRIX_MODEL);
        short weights[12];
        require(camera.vorm->GetCurrentMatrix(weights) == TOVIX_OK, "there is a matrix");
    }
    delete camera.vorm;
    return 0;
}
