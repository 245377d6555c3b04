// SPDX-License-Identifier: Apache-2.0
// What it costs to receive and convert frames at the bus's full rate, 40 million bytes a second, and how long a frame takes
// from its last byte on the bus to the application that waits for it. Prints a table.
//
//   streaming_bench [SECONDS]      for each camera and method; 10 unless told otherwise
//
// Cameras are simulated, in real time. Making their pictures has a thread of its own, which is listed apart: with a real camera
// the host's USB controller does that work.
#include <pthread.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include "bus.h"
#include "handle.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kFullRate = 40'000;  // thousands of pixels a second
constexpr int kUnmeasuredFrames = 3;         // the simulated sensor draws the first and repeats it later

/// Processor time of a thread, or of all threads.
double seconds_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

clockid_t clock_of(pthread_t thread) {
    clockid_t clock{};
    if (pthread_getcpuclockid(thread, &clock) != 0) throw std::runtime_error("a thread has no clock");
    return clock;
}

void check(std::int32_t result, const char* what) {
    if (result < 0) throw std::runtime_error(what + std::string(" failed: ") + std::to_string(result));
}

struct Conversion {
    const char* name;
    std::uint32_t method;
};

struct Measured {
    double frames = 0, seconds = 0, library = 0, converting = 0, process = 0;  // seconds, but for the frames
    std::vector<double> latencies_us;

    double percentile(double part) {
        std::ranges::sort(latencies_us);
        return latencies_us[static_cast<std::size_t>(part * static_cast<double>(latencies_us.size() - 1))];
    }
};

Measured stream(_tovix* camera, const std::atomic<Clock::time_point>& frame_end, const Conversion& conversion,
                double seconds) {
    tovix_image_format format{};
    format.size = sizeof format;
    check(tovix_get_image_format(camera, &format), "describing the frames");
    tovix_conversion_params params{};
    params.size = 12;  // the short form: the rest comes from the object
    params.demosaic_method = conversion.method;
    params.correction_matrix = TOVIX_MATRIX_MODEL;
    CVorm vorm;
    std::vector<unsigned char> image(std::size_t{format.width} * format.height * 3);

    check(tovix_set_data_rate(camera, kFullRate), "choosing the data rate");
    check(tovix_enable_streaming(camera), "enabling the stream");
    check(tovix_start_streaming(camera), "starting the stream");
    const clockid_t acquisition = clock_of(camera->stream.stream_thread), application = clock_of(pthread_self());

    Measured measured;
    double library_start = 0, process_start = 0;
    Clock::time_point start;
    for (int i = -kUnmeasuredFrames; i <= 0 || measured.seconds < seconds; ++i) {
        if (i == 0) {
            start = Clock::now();
            library_start = seconds_of(acquisition) + seconds_of(application);
            process_start = seconds_of(CLOCK_PROCESS_CPUTIME_ID);
            measured = {};
        }
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        const std::chrono::duration<double, std::micro> latency = Clock::now() - frame_end.load();
        check(index, "waiting for a frame");
        const double before = seconds_of(application);
        check(vorm.ConvertToRgb(image.data(), tovix_get_buffer_address(camera, index), 24, &format, &params),
              "converting");
        measured.converting += seconds_of(application) - before;
        check(tovix_release_buffer(camera, index), "giving the buffer back");
        measured.latencies_us.push_back(latency.count());
        ++measured.frames;
        measured.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    }
    measured.library = seconds_of(acquisition) + seconds_of(application) - library_start - measured.converting;
    measured.process = seconds_of(CLOCK_PROCESS_CPUTIME_ID) - process_start;
    check(tovix_stop_streaming(camera), "stopping the stream");
    check(tovix_disable_streaming(camera), "disabling the stream");
    return measured;
}

void print_row(const std::string& model, const Conversion& conversion, double seconds) {
    tovix::simulator::DeviceOptions options;
    tovix::simulator::Model found;
    if (!find_model(model, found)) throw std::runtime_error("there is no model " + model);
    options.camera = tovix::simulator::CameraSetup::of(found);
    options.camera.noise = 0;  // with it every frame is drawn anew, for a while
    options.state = tovix::simulator::DeviceOptions::State::kReady;
    tovix::simulator::Bus bus(tovix::simulator::Pace::kRealTime);
    tz_platform_select(&bus);
    std::atomic<Clock::time_point> frame_end{};  // of the newest frame: its last byte is in the ring
    bus.plug_in(options)->access()->set_observer([&](const tovix::simulator::Transfer& transfer) {
        if (transfer.kind == tovix::simulator::Transfer::Kind::kBulkIn) frame_end = Clock::now();
    });

    _tovix* camera = nullptr;
    check(tovix_camera_open_any(&camera), "opening the camera");
    Measured m = stream(camera, frame_end, conversion, seconds);
    const auto percent = [&](double processor_seconds) { return 100 * processor_seconds / m.seconds; };
    std::printf("| %u x %u, %s | %.1f | %.2f %% | %.1f %% | %.1f %% | %.0f | %.0f |\n", camera->width, camera->height,
                conversion.name, m.frames / m.seconds, percent(m.library), percent(m.converting),
                percent(m.process - m.library - m.converting), m.percentile(.5), m.percentile(.99));
    tovix_camera_close(&camera);
    tz_platform_select(nullptr);
}

}  // namespace

int main(int argc, char** argv) try {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10;
    if (argc > 2 || seconds <= 0) throw std::runtime_error("usage: streaming_bench [SECONDS]");
    if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;  // the library's progress lines
    std::printf(
        "| frames, conversion | frames/s | receiving | converting | (simulating) | in hand: median, us | 99th "
        "percentile, us |\n");
    std::printf("|---|---:|---:|---:|---:|---:|---:|\n");
    for (const char* model : {"mira13c", "mira50c"}) {
        for (const Conversion& conversion :
             {Conversion{"nearest + matrix", TOVIX_DEMOSAIC_NEAREST}, {"zurno + matrix", TOVIX_DEMOSAIC_ZURNO}})
            print_row(model, conversion, seconds);
    }
    return 0;
} catch (const std::exception& error) {
    std::printf("error: %s\n", error.what());
    return 1;
}
