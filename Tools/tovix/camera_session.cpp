// SPDX-License-Identifier: Apache-2.0
#include "camera_session.h"

#include <algorithm>
#include <limits>

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

std::string model_names() {
    std::string names;
    for (std::uint32_t i = 0;; ++i) {
        const char* const name = tovix_simulation_model_name(i);
        if (name == nullptr) return names;
        names += (i != 0 ? " " : "") + std::string(name);
    }
}

bool is_model(const std::string& wanted) {
    for (std::uint32_t i = 0;; ++i) {
        const char* const name = tovix_simulation_model_name(i);
        if (name == nullptr) return false;
        if (name == wanted) return true;
    }
}

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

CameraSession::CameraSession(const GlobalOptions& options, QuietStderr& quiet, Marks marks)
    : quiet_(quiet), simulated_(!options.simulated.empty()) {
    if (simulated_) {
        if (const std::int32_t result = tovix_simulation_begin(TOVIX_SIMULATION_REAL_TIME); result < 0)
            throw quiet_.failure("cannot simulate a bus", result, kVerboseAdvice);
    }
    try {
        for (const SimulatedCamera& camera : options.simulated)
            attach(camera, options.view, marks);
        start_up(options);
    } catch (...) {  // no destructor runs for what was not made whole
        if (simulated_) tovix_simulation_end();
        throw;
    }
}

CameraSession::~CameraSession() {
    if (simulated_) tovix_simulation_end();
}

void CameraSession::attach(const SimulatedCamera& camera, const SimulatedView& view, Marks marks) const {
    if (!camera.model.empty() && !is_model(camera.model))
        throw Failure("there is no simulated model '" + printable(camera.model) + "'; choose from: " + model_names());
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.state = TOVIX_SIMULATED_BARE;
    options.model = camera.model.empty() ? nullptr : camera.model.c_str();
    options.picture = view.picture.empty() ? nullptr : view.picture.c_str();
    options.serial_number = camera.serial_number;
    // Where 0 stands for the usual, its nearest neighbours stand for none.
    for (std::size_t i = 0; i < view.light.size(); ++i)
        options.light[i] = std::max(static_cast<float>(view.light[i]), std::numeric_limits<float>::min());
    options.blur = static_cast<float>(view.blur);
    if (view.noise) options.noise = *view.noise > 0 ? static_cast<float>(*view.noise) : -1;
    options.mark_frames = marks == Marks::kInFrames;
    if (const std::int32_t result = tovix_simulation_attach(&options, nullptr); result < 0)
        throw quiet_.failure("cannot simulate the camera", result, kVerboseAdvice);
}

void CameraSession::start_up(const GlobalOptions& options) {
    Progress progress(quiet_);
    progress.note("bringing cameras up ...");
    const std::string resources =
        options.resources.empty() && simulated_ ? find_simulated_resources() : options.resources;
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
