// SPDX-License-Identifier: Apache-2.0
// tovix set: set properties, and show what the camera made of them.
#include <nlohmann/json.hpp>

#include "commands.h"
#include "property_answers.h"

namespace {

/// What the value alone does not tell.
std::string remark(const PropertySetting& setting, const PropertyState& state) {
    if (setting.property->property == TOVIX_PROP_TEMPERATURE)
        return setting.on ? "  (control on, goal " + number_text(setting.value) + ")" : "  (control off)";
    return state.kept_by_conversion() ? "  (until this command ends; see capture --set)" : "";
}

}  // namespace

void run(const SetOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const CameraSession session(global, quiet);
    const Camera camera = session.open(options.camera);
    set_properties(camera, options.settings);
    if (options.json) {
        std::vector<const tovix_property_info*> properties;
        for (const PropertySetting& setting : options.settings)
            properties.push_back(setting.property);
        std::printf("%s\n", properties_json(camera, properties).dump(2).c_str());
        return;
    }
    for (const PropertySetting& setting : options.settings) {
        const PropertyState state = read_property(camera, *setting.property);
        std::printf("%s=%s%s\n", setting.property->name, number_text(state.shown_value()).c_str(),
                    remark(setting, state).c_str());
    }
}
