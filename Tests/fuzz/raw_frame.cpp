// SPDX-License-Identifier: Apache-2.0
// A raw frame with any description beside it, rendered in any way, as `tovix convert` does it.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "description.h"
#include "failure.h"
#include "model_matrices.h"
#include "rendering.h"
#include "target.h"

using namespace tovix::fuzz;

namespace {

constexpr std::uint64_t kMostBytes = 8192;

/// The name of a raw file whose description is a file that changes.
class RawFile {
  public:
    RawFile() {
        char name[] = "/tmp/fuzz-XXXXXX";
        require(mkdtemp(name) != nullptr, "a directory can be made");
        folder_ = name;
        std::filesystem::create_symlink(description.path(), description_name(this->name()));
    }
    ~RawFile() { std::filesystem::remove_all(folder_); }
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;
    std::string name() const { return folder_ / "frame.raw"; }

    ScratchFile description;

  private:
    std::filesystem::path folder_;
};

RenderingOptions any_options(Input& input) {
    RenderingOptions options;
    const std::uint32_t given = input.number<std::uint16_t>();
    const auto is_given = [&](int bit) { return (given >> bit & 1) != 0; };
    const auto number = [&] { return input.number<std::int16_t>() / 256.0; };
    const auto three = [&] { return std::array{number(), number(), number()}; };
    if (is_given(0)) options.method = input.up_to(10);
    if (is_given(1)) options.matrix = input.up_to(17);
    if (is_given(2)) options.bits = 8 + 8 * input.up_to(1);
    options.flip_x = is_given(3), options.flip_y = is_given(4);
    if (is_given(5)) options.hue = number();
    if (is_given(6)) options.saturation = number();
    if (is_given(7)) options.gain = number();
    if (is_given(8)) options.gains = three();
    if (is_given(9)) options.grey = three();
    if (is_given(10)) options.gamma = number();
    if (is_given(11)) options.contrast = number();
    if (is_given(12)) options.brightness = number();
    if (is_given(13)) options.properties.emplace_back(input.number<std::uint8_t>(), input.number<int>());
    return options;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const RawFile file;
    Input input(data, size);
    const RenderingOptions options = any_options(input);
    const bool with_model = input.flag();
    file.description.set(input.rest());
    try {
        const RawFacts facts = read_description(file.name());
        if (!facts.width || !facts.height || !facts.color_filter) return 0;
        const FrameLayout layout{.width = *facts.width,
                                 .height = *facts.height,
                                 .bits = facts.bits.value_or(8),
                                 .msb_first = facts.msb_first.value_or(false),
                                 .color_filter = *facts.color_filter};
        if (layout.bytes() > kMostBytes) return 0;
        const camera_id* model = nullptr;
        if (with_model && facts.product_id) model = &model_of_product(*facts.product_id);
        if (with_model && facts.model) model = &model_named(*facts.model);
        const Block samples(layout.bytes());
        Input pattern(data, size);
        pattern.fill(samples.span());
        Renderer renderer(options, layout, model);
        const Picture picture = renderer.render(samples.span());
        require(
            picture.bytes.size() == std::size_t{picture.width} * picture.height * picture.channels * picture.bits / 8,
            "a picture has the bytes of its size");
    } catch (const Failure& failure) {
        require(*failure.what() != '\0', "a failure says why");
    }
    return 0;
}
