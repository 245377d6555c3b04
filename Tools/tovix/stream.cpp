// SPDX-License-Identifier: Apache-2.0
// tovix stream: run the stream, and measure it or hand the frames on to a pipe.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "camera_stream.h"
#include "commands.h"
#include "statistics.h"
#include "tovixapi/simulation.h"

namespace {

using Clock = CameraStream::Clock;

std::string count_text(const std::optional<std::uint64_t>& count) {
    return count ? std::to_string(*count) : "unknown";
}

std::string rate_text(const StreamStatistics& figures, std::uint64_t frames) {
    return text("%llu frames, %.2f frames/s, %.2f MB/s", static_cast<unsigned long long>(frames),
                figures.frames_per_second(), figures.bytes_per_second() / 1e6);
}

std::string detail_text(const StreamStatistics& figures) {
    std::string out = "skipped " + count_text(figures.skipped());
    if (figures.torn()) out += ", torn " + count_text(figures.torn());
    if (const auto intervals = figures.intervals())
        out += text(", between frames %.2f / %.2f / %.2f ms (min/median/max)", intervals->min_ms, intervals->median_ms,
                    intervals->max_ms);
    return out;
}

void print_summary(const StreamStatistics& figures, bool details, std::FILE* out) {
    std::fprintf(out, "%s in %.2f s\n", rate_text(figures, figures.frames()).c_str(), figures.seconds());
    if (details) std::fprintf(out, "%s\n", detail_text(figures).c_str());
}

void print_json(const StreamStatistics& figures, const ListedCamera& camera, const FrameLayout& layout) {
    const auto or_null = [](const auto& value) { return value ? nlohmann::ordered_json(*value) : nullptr; };
    nlohmann::ordered_json answer = {
        {"model", camera.model},
        {"serial", camera.identity.serial_number},
        {"width", layout.width},
        {"height", layout.height},
        {"frames", figures.frames()},
        {"seconds", figures.seconds()},
        {"frames_per_second", figures.frames_per_second()},
        {"bytes_per_second", figures.bytes_per_second()},
        {"skipped", or_null(figures.skipped())},
        {"torn", or_null(figures.torn())},
        {"interval_ms", nullptr},
    };
    if (const auto intervals = figures.intervals())
        answer["interval_ms"] = {
            {"min", intervals->min_ms}, {"median", intervals->median_ms}, {"max", intervals->max_ms}};
    std::printf("%s\n", answer.dump(2).c_str());
}

/// Write all of a frame to standard output. False when nobody reads it any longer.
bool hand_on(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (written < 0 && errno == EPIPE) return false;
        if (written < 0) throw Failure(std::string("cannot write to standard output: ") + std::strerror(errno));
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

FrameMark mark_of(std::span<const std::uint8_t> samples, const FrameLayout& layout) {
    FrameMark mark{false, 0};
    mark.whole = tovix_simulation_check_frame(samples.data(), layout.width, layout.height, &mark.serial) == 1;
    return mark;
}

/// All frames so far and the figures of the last second, once a second, for somebody who looks on.
class Ticker {
  public:
    explicit Ticker(std::FILE* out) : out_(out) {}

    void add(Clock::time_point arrival, std::size_t bytes, const std::optional<FrameMark>& mark, std::uint64_t frames) {
        if (out_ == nullptr) return;
        second_.add(arrival, bytes, mark);
        if (arrival - began_ < std::chrono::seconds(1)) return;
        std::fprintf(out_, "%s, %s\n", rate_text(second_, frames).c_str(), detail_text(second_).c_str());
        std::fflush(out_);
        second_ = {};
        second_.add(arrival, bytes, mark);  // the frame that ends one second begins the next
        began_ = arrival;
    }

  private:
    std::FILE* out_;
    StreamStatistics second_;
    Clock::time_point began_ = Clock::now();
};

}  // namespace

void run(const StreamOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    // Marks overwrite pixels, which whoever reads the pipe would not like.
    const bool marked = !global.simulated.empty() && !options.to_stdout;
    const CameraSession session(global, quiet, marked ? SimulatedBus::Marks::kInFrames : SimulatedBus::Marks::kNone);
    const Camera camera = session.open(options.camera);
    const FrameLayout layout = camera.frame_layout();

    std::FILE* const out = options.to_stdout ? quiet.messages() : stdout;
    const bool looked_at = options.stats && !options.json && isatty(fileno(out)) == 1;
    Ticker ticker(looked_at ? out : nullptr);
    StreamStatistics figures;
    std::optional<Failure> failure;
    {
        CameraStream stream(camera, options.timeout_s);
        const auto began = Clock::now();
        const auto complete = [&] {
            return (options.count != 0 && figures.frames() >= options.count) ||
                   (options.seconds > 0 &&
                    std::chrono::duration<double>(Clock::now() - began).count() >= options.seconds);
        };
        bool wanted = true;
        while (wanted && !complete()) {
            const std::optional<HeldFrame> frame = stream.next();
            if (!frame) break;
            const Clock::time_point arrival = Clock::now();
            std::optional<FrameMark> mark;
            if (marked) mark = mark_of(frame->samples(), layout);
            figures.add(arrival, frame->samples().size(), mark);
            ticker.add(arrival, frame->samples().size(), mark, figures.frames());
            if (options.to_stdout) wanted = hand_on(frame->samples());
        }
        // A stream without a limit is meant to be ended by a signal, and any by the reader of its pipe.
        const bool limited = options.count != 0 || options.seconds > 0;
        const bool as_meant =
            stream.end() == CameraStream::End::kNone || (stream.end() == CameraStream::End::kSignal && !limited);
        if (wanted && !complete() && !as_meant)
            failure = stream.failure(text("after %llu frames", static_cast<unsigned long long>(figures.frames())));
    }
    if (options.json) {
        print_json(figures, camera.listed(), layout);
    } else if (!options.to_stdout || options.stats) {
        print_summary(figures, options.stats, out);
    }
    if (failure) throw *failure;
}
