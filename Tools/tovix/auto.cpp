// SPDX-License-Identifier: Apache-2.0
// tovix auto: let the camera find a setting, and show each step.
#include <nlohmann/json.hpp>

#include "answer.h"
#include "commands.h"
#include "progress.h"
#include "properties.h"

namespace {

/// Further digits of a measure are noise.
double rounded(double value, int digits) {
    return std::stod(text("%.*g", digits, value));
}

void print_step(std::uint32_t step, const Figures& figures) {
    std::printf("step %u", step);
    for (const auto& [name, value] : figures) {
        const bool no_news = name.starts_with("digital_gain") && value == 1;
        if (!no_news) std::printf("  %s %s", name.c_str(), number_text(rounded(value, 4)).c_str());
    }
    std::printf("\n");
    flush_answer();
}

nlohmann::ordered_json step_json(std::uint32_t step, const Figures& figures) {
    nlohmann::ordered_json row{{"step", step}};
    for (const auto& [name, value] : figures)
        row[name] = rounded(value, 5);
    return row;
}

}  // namespace

void run(const AutoOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const CameraSession session(global, quiet);
    const Camera camera = session.open(options.camera);
    set_properties(camera, options.settings);
    const Rectangle area = options.adjustment.area_in(camera.frame_layout());

    Progress progress(quiet);
    std::uint32_t steps = 0;
    auto rows = nlohmann::ordered_json::array();
    const auto on_step = [&](std::uint32_t step, const Figures& figures) {
        steps = step;
        if (options.json) {
            rows.push_back(step_json(step, figures));
            progress.note(text("step %u", step));
        } else {
            print_step(step, figures);
        }
    };
    std::optional<Failure> failure;
    try {
        CameraStream stream(camera, options.timeout_s);
        adjust(options.what, options.adjustment, camera, stream, on_step);
    } catch (const Failure& reason) {
        failure = reason;
    }
    progress.clear();
    if (options.json) {
        const nlohmann::ordered_json answer = {
            {"adjustment", name_of(options.what)},
            {"settled", !failure},
            {"reason", failure ? nlohmann::ordered_json(failure->what()) : nullptr},
            {"roi", {{"x", area.x}, {"y", area.y}, {"width", area.width}, {"height", area.height}}},
            {"target", options.what == Adjustment::kExposure || options.what == Adjustment::kGain
                           ? nlohmann::ordered_json(options.adjustment.target)
                           : nullptr},
            {"steps", rows},
        };
        std::printf("%s\n", answer.dump(2).c_str());
    } else if (!failure) {
        std::printf("settled after %u step%s\n", steps, steps == 1 ? "" : "s");
    }
    if (failure) throw *failure;
}
