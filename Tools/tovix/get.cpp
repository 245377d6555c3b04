// SPDX-License-Identifier: Apache-2.0
// tovix get: values of properties, one a line as NAME=VALUE, which 'tovix set' takes.
#include <nlohmann/json.hpp>

#include "commands.h"
#include "property_answers.h"

void run(const GetOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const CameraSession session(global, quiet);
    const Camera camera = session.open(options.camera);
    const auto properties = options.properties.empty() ? all_properties() : options.properties;
    if (options.json) {
        std::printf("%s\n", properties_json(camera, properties).dump(2).c_str());
        return;
    }
    for (const tovix_property_info* const property : properties)
        std::printf("%s=%s\n", property->name, number_text(read_property(camera, *property).shown_value()).c_str());
}
