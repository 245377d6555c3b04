// SPDX-License-Identifier: Apache-2.0
#include "camera_session.h"

#include "progress.h"
#include "resources.h"
#include "tovixapi/simulation.h"

namespace {

constexpr char kNoCameraAdvice[] =
    "check its cable, other programs that hold it and your permission to use it (a udev rule), "
    "or try 'tovix --simulate ...'";
constexpr char kRefused[] =
    "no permission to use the camera; install the udev rule (see README.md), then plug the camera in again";
constexpr char kVerboseAdvice[] = "run with --verbose to see each step";

/// All attached cameras: there may be more at the second look than at the first.
std::vector<tovix_version> enumerate(const QuietStderr& quiet) {
    for (std::vector<tovix_version> records(16);;) {
        auto count = static_cast<std::uint32_t>(records.size());
        if (const std::int32_t result = tovix_enum_cameras(records.data(), &count); result < 0)
            throw quiet.failure("cannot search for cameras", result, kVerboseAdvice);
        const bool all = count <= records.size();
        records.resize(count);
        if (all) return records;
    }
}

}  // namespace

CameraSession::CameraSession(const GlobalOptions& options, QuietStderr& quiet, SimulatedBus::Marks marks)
    : quiet_(quiet) {
    if (!options.simulated.empty()) bus_.emplace(quiet_);
    for (const SimulatedCamera& camera : options.simulated)
        bus_->attach(camera, options.view, TOVIX_SIMULATED_BARE, marks);
    start_up(options);
}

void CameraSession::start_up(const GlobalOptions& options) {
    Progress progress(quiet_);
    progress.note("bringing cameras up ...");
    const std::string resources = options.resources.empty() && bus_ ? find_simulated_resources() : options.resources;
    if (const std::int32_t result = tovix_init(resources.empty() ? nullptr : resources.c_str()); result < 0)
        throw quiet_.failure("cannot search for cameras", result, kVerboseAdvice);

    for (const tovix_version& identity : enumerate(quiet_)) {
        char name[32] = "?";
        _tovix* handle = nullptr;
        if (tovix_camera_open(&handle, &identity) == TOVIX_OK) tovix_get_model_name(handle, name, sizeof name);
        tovix_camera_close(&handle);
        cameras_.push_back({identity, printable(name)});
    }
    if (!cameras_.empty()) return;
    if (quiet_.says_refused()) throw NoCamera(kRefused);
    const std::string reason = quiet_.last_error();
    if (reason.empty()) throw NoCamera(std::string("no camera found; ") + kNoCameraAdvice);
    throw NoCamera("no camera found: " + reason + "; check --resources and the cable, or " + kVerboseAdvice);
}

Camera CameraSession::open(const std::string& selector) const {
    const ListedCamera& camera = select_camera(cameras_, selector);
    quiet_.forget();
    return Camera(camera, quiet_);
}
