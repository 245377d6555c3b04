// SPDX-License-Identifier: Apache-2.0
// Long runs on the simulated bus: frames, starts and opens by the thousand, with what they leave behind.
//
//   soak FRAMES STARTS OPENS UNPLUGS
//
// Prints frame rate and processor share, torn and unaccounted-for frames, what grew (memory, descriptors, threads), and how
// long waiters and stops took when the camera was pulled out.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "backend.h"
#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

namespace {

struct Footprint {
    long kilobytes, descriptors, threads, objects;
};

Footprint footprint() {
    Footprint now{0, 0, 0, tz_platform_objects_alive()};
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") status >> now.kilobytes;
        if (word == "Threads:") status >> now.threads;
    }
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++now.descriptors;
    return now;
}

double seconds_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double processor_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int failures = 0;

void check(bool good, const char* what) {
    if (good) return;
    ++failures;
    std::printf("FAILED: %s\n", what);
}

void compare(const char* what, const Footprint& before, const Footprint& after) {
    std::printf("%s: memory %+ld kB, descriptors %+ld, threads %+ld, objects %+ld\n", what,
                after.kilobytes - before.kilobytes, after.descriptors - before.descriptors,
                after.threads - before.threads, after.objects - before.objects);
    check(after.descriptors == before.descriptors, "descriptors grew");
    check(after.threads == before.threads, "threads grew");
    check(after.objects == before.objects, "objects were left over");
    check(after.kilobytes - before.kilobytes < 4096, "memory grew");
}

/// Every frame that the camera takes is handed out, or skipped for a newer one, or comes after the last wait and is in the
/// ring when the stream has ended. The camera loses none: it takes 10 s over one, which are over at once where a read waits.
void run_frames(_tovix* camera, tovix_simulated_camera* device, long frames) {
    constexpr std::uint32_t kExposure = 0x04A4;  // register, microseconds
    tovix_image_format format{};
    tovix_get_image_format(camera, &format);
    check(tz_usb_write_tovix_u32(camera, kExposure, 10'000'000) == 0, "long exposure");
    check(tovix_enable_streaming(camera) == 0 && tovix_start_streaming(camera) == 0, "start");
    const double start = seconds_now(), processor_start = processor_seconds();
    long handed_out = 0, torn = 0, skipped = 0, unsorted = 0, last = -1;
    const auto serial_of = [&](std::int32_t index) {
        std::uint32_t serial = 0;
        torn += tovix_simulation_check_frame(tovix_get_buffer_address(camera, index), format.width, format.height,
                                             &serial) != 1;
        return long{serial};
    };
    for (long i = 0; i < frames; ++i) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        if (index < 0) {
            check(false, "wait");
            break;
        }
        const long serial = serial_of(index);
        unsorted += serial <= last;
        skipped += serial - last - 1;
        last = serial;
        ++handed_out;
        tovix_release_buffer(camera, index);
    }
    const double took = seconds_now() - start, processor = processor_seconds() - processor_start;
    check(tovix_stop_streaming(camera) == 0, "stop");
    long late = 0;
    for (const std::int32_t index : {0, 1, 2})
        late = std::max(late, serial_of(index) - last);
    check(tovix_disable_streaming(camera) == 0, "disable");
    const long produced = tovix_simulation_frames_produced(device);
    std::printf(
        "%ld frames of %u x %u: %.0f frames/s, %.2f cores; %ld torn, %ld out of order; %ld produced = %ld handed out + "
        "%ld skipped + %ld late\n",
        frames, format.width, format.height, double(frames) / took, processor / took, torn, unsorted, produced,
        handed_out, skipped, late);
    check(produced == handed_out + skipped + late, "frames that are not accounted for");
    check(torn == 0 && unsorted == 0, "torn or unsorted frames");
}

/// Pull the camera out of a running stream, with 0, 1 or 2 buffers held and a waiter, and while a stop is under way.
void pull_out(_tovix*& camera, tovix_simulated_camera* device, long unplugs) {
    double longest_wait = 0, longest_stop = 0;
    for (long i = 0; i < unplugs; ++i) {
        check(tovix_camera_open_any(&camera) == 0 && camera != nullptr, "open after a replug");
        if (camera == nullptr) return;
        check(tovix_enable_streaming(camera) == 0 && tovix_start_streaming(camera) == 0, "start after a replug");
        for (long held = 0; held < i % 3; ++held)
            tovix_wait_for_capture_to_buffer(camera);
        std::atomic<double> wait_ended{0};
        std::thread waiter([&] {
            for (std::int32_t index = 0; index != TOVIX_ENODATA;) {
                index = tovix_wait_for_capture_to_buffer(camera);
                if (index >= 0) tovix_release_buffer(camera, index);
            }
            wait_ended = seconds_now();
        });
        std::thread stopper;
        if (i % 4 == 3) stopper = std::thread([&] { tovix_stop_streaming(camera); });
        const double pulled = seconds_now();
        tovix_simulation_unplug(device);
        if (stopper.joinable()) {
            stopper.join();
        } else {
            check(tovix_stop_streaming(camera) == 0, "stop of a camera that is gone");
        }
        longest_stop = std::max(longest_stop, seconds_now() - pulled);
        waiter.join();
        longest_wait = std::max(longest_wait, wait_ended - pulled);
        tovix_camera_close(&camera);
        tovix_simulation_plug_in(device);
    }
    std::printf("%ld unplugs: longest wait %.1f ms, longest stop %.1f ms\n", unplugs, longest_wait * 1e3,
                longest_stop * 1e3);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: soak FRAMES STARTS OPENS UNPLUGS\n");
        return 2;
    }
    const long frames = std::atol(argv[1]), starts = std::atol(argv[2]), opens = std::atol(argv[3]),
               unplugs = std::atol(argv[4]);
    if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;  // the library's progress lines

    tovix_simulation_begin(TOVIX_SIMULATION_FAST);
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.state = TOVIX_SIMULATED_READY;
    options.mark_frames = 1;
    tovix_simulated_camera* device = nullptr;
    tovix_simulation_attach(&options, &device);
    _tovix* camera = nullptr;
    check(tovix_camera_open_any(&camera) == 0 && camera != nullptr, "open");

    run_frames(camera, device, frames);

    const auto start_and_stop = [&] {
        const bool good = tovix_start_streaming(camera) == 0 && tovix_stop_streaming(camera) == 0;
        check(good, "start and stop");
    };
    check(tovix_enable_streaming(camera) == 0, "enable");
    for (long i = 0; i < starts / 10; ++i)
        start_and_stop();  // until allocators and caches have settled
    Footprint before = footprint();
    for (long i = 0; i < starts; ++i)
        start_and_stop();
    compare((std::to_string(starts) + " starts and stops").c_str(), before, footprint());
    tovix_camera_close(&camera);

    const auto open_and_close = [&] {
        check(tovix_camera_open_any(&camera) == 0 && camera != nullptr, "open");
        tovix_camera_close(&camera);
    };
    for (long i = 0; i < opens / 10; ++i)
        open_and_close();
    before = footprint();
    for (long i = 0; i < opens; ++i)
        open_and_close();
    compare((std::to_string(opens) + " opens and closes").c_str(), before, footprint());
    pull_out(camera, device, unplugs);
    tovix_simulation_end();
    return failures == 0 ? 0 : 1;
}
