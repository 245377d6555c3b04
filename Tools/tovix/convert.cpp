// SPDX-License-Identifier: Apache-2.0
// tovix convert: a saved raw frame into a picture, without a camera. The answer is the name of the picture.
#include <filesystem>

#include "answer.h"
#include "commands.h"
#include "image_files.h"
#include "input_file.h"
#include "model_matrices.h"
#include "pending_file.h"
#include "signals.h"

namespace {

/// More than any sensor delivers, and little enough that frame and picture find room in memory.
constexpr std::uint64_t kMaxFrameBytes = std::uint64_t{512} << 20;

/// What an option says, or else the description.
template <class Value>
std::optional<Value> either(const std::optional<Value>& option, const std::optional<Value>& described) {
    return option ? option : described;
}

template <class Value>
Value needed(const std::optional<Value>& value, const std::string& raw_name, const char* what, const char* option) {
    if (value) return *value;
    throw Failure("nothing tells the " + std::string(what) + " of " + printable(raw_name) + ": no " +
                  printable(description_name(raw_name)) + " that says it; give " + option);
}

FrameLayout layout_of(const ConvertOptions& options, const RawFacts& described) {
    const RawFacts& given = options.facts;
    return {
        .width = needed(either(given.width, described.width), options.raw, "width", "--width"),
        .height = needed(either(given.height, described.height), options.raw, "height", "--height"),
        .bits = either(given.bits, described.bits).value_or(8),
        .msb_first = either(given.msb_first, described.msb_first).value_or(false),
        .color_filter =
            needed(either(given.color_filter, described.color_filter), options.raw, "colour filter", "--phase"),
    };
}

bool needs_model(const RenderingOptions& rendering, const FrameLayout& layout) {
    return !layout.mono() && is_of_model(rendering.matrix.value_or(TOVIX_MATRIX_MODEL));
}

/// The model whose matrices count, or null when none is named. What was given on the command line goes first, and a
/// product ID before a name: names come from devices.
const camera_id* model_of(const RawFacts& given, const RawFacts& described) {
    for (const RawFacts* facts : {&given, &described}) {
        if (facts->product_id) return &model_of_product(*facts->product_id);
        if (facts->model) return &model_named(*facts->model);
    }
    return nullptr;
}

std::vector<std::uint8_t> read_samples(const InputFile& raw, const std::string& name, const FrameLayout& layout) {
    if (raw.size() != layout.bytes())
        throw Failure(printable(name) +
                      text(" has %llu bytes, but %u x %u samples of %u bits are %llu; check --width, --height and "
                           "--depth",
                           static_cast<unsigned long long>(raw.size()), layout.width, layout.height, layout.bits,
                           static_cast<unsigned long long>(layout.bytes())));
    return raw.read(kMaxFrameBytes);
}

}  // namespace

void run(const ConvertOptions& options, const GlobalOptions&, QuietStderr&) {
    check_writable(options.output);
    const InputFile raw(options.raw);
    for (const std::string& source : {options.raw, description_name(options.raw)}) {
        std::error_code error;  // a file that is not there is not replaced
        if (std::filesystem::equivalent(source, options.output, error))
            throw Failure("the picture would replace " + printable(source) + "; choose another name with -o");
    }
    const RawFacts described = read_description(options.raw);
    const FrameLayout layout = layout_of(options, described);
    const std::vector<std::uint8_t> samples = read_samples(raw, options.raw, layout);
    Renderer renderer(options.rendering, layout,
                      needs_model(options.rendering, layout) ? model_of(options.facts, described) : nullptr);
    const StopSignals signals;  // the first one leaves time to finish the file
    write_picture(options.output, options.kind, renderer.render(samples));
    std::printf("%s\n", options.output.c_str());
    flush_answer();
}
