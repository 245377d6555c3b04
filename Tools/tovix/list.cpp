// SPDX-License-Identifier: Apache-2.0
// tovix list: the cameras on the bus, one a line.
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"

namespace {

const char* speed_text(const tovix_version& identity) {
    return identity.high_speed != 0 ? "high" : "full";
}

void print_json(const std::vector<ListedCamera>& cameras) {
    auto answer = nlohmann::ordered_json::array();
    for (const ListedCamera& camera : cameras) {
        answer.push_back({{"index", answer.size()},
                          {"model", camera.model},
                          {"serial", camera.identity.serial_number},
                          {"product_id", camera.identity.product_id},
                          {"firmware", camera.identity.firmware_version},
                          {"speed", speed_text(camera.identity)}});
    }
    std::printf("%s\n", answer.dump(2).c_str());
}

void print_table(const std::vector<ListedCamera>& cameras) {
    int model_width = 5;
    for (const ListedCamera& camera : cameras)
        model_width = std::max(model_width, static_cast<int>(camera.model.size()));
    if (isatty(STDOUT_FILENO) == 1)
        std::printf("%5s  %-*s  %10s  %-7s  %-8s  %s\n", "INDEX", model_width, "MODEL", "SERIAL", "PRODUCT", "FIRMWARE",
                    "SPEED");
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        const tovix_version& identity = cameras[i].identity;
        std::printf("%5zu  %-*s  %10u  0x%04X   %08X  %s\n", i, model_width, cameras[i].model.c_str(),
                    identity.serial_number, identity.product_id, identity.firmware_version, speed_text(identity));
    }
}

}  // namespace

void run(const ListOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    std::optional<CameraSession> session;
    try {
        session.emplace(global, quiet);
    } catch (const NoCamera&) {
        if (options.json) print_json({});
        throw;
    }
    if (options.json) {
        print_json(session->cameras());
    } else {
        print_table(session->cameras());
    }
    if (const std::string error = quiet.last_error(); !error.empty())
        std::fprintf(quiet.messages(), "tovix: a camera may be missing: %s; --verbose shows each step\n",
                     error.c_str());
}
