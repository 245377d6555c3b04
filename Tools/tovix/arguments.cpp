// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "adjustment_arguments.h"
#include "option_values.h"
#include "rendering_arguments.h"

namespace {

constexpr int kWrongUsage = 2;

constexpr char kExamples[] =
    "Examples:\n"
    "  tovix list                                     cameras that are attached\n"
    "  tovix capture -o frame.png                     a picture from the first one\n"
    "  tovix capture --camera 1001 -n 20 -o a.raw     a-0001.raw to a-0020.raw, each with a description\n"
    "  tovix convert a-0001.raw -o a.tif              a picture of it later\n"
    "  tovix capture --auto exposure --auto white-balance   first let the camera find its settings\n"
    "  tovix --simulate capture                       the same as with a camera, without one\n"
    "  tovix --simulate=lyra03m:77 info               a simulated model, with serial number 77\n"
    "  tovix simulate --usbip                         one for other programs, as if it were real\n"
    "\n"
    "Answers go to standard output, messages to standard error.\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage.";

constexpr char kSelectorHelp[] = "Index, serial number, or (beginning of the) model;\nif not given, the first camera";

constexpr char kTimeoutHelp[] = "Longest wait for a frame, beyond its exposure (10)";

constexpr char kPropertyHelp[] =
    "Names: as 'tovix info' lists them; case and - or _ do not matter. Exposures are in\n"
    "milliseconds, gains are factors, temperatures are in degrees Celsius: setting one\n"
    "switches the control on, temperature=off switches it off. Properties that the\n"
    "conversion keeps last for one command; give them to 'tovix capture --set'.";

/// MODEL, MODEL:SERIAL, or nothing but the flag.
SimulatedCamera parse_simulated(const std::string& value, const std::string& option) {
    if (value == "true") return {};  // a flag without a value
    const std::size_t colon = value.find(':');
    SimulatedCamera camera{.model = value.substr(0, colon)};
    if (colon != std::string::npos)
        camera.serial_number = parse_number<std::uint32_t>(std::string_view(value).substr(colon + 1), 1,
                                                           std::numeric_limits<std::uint32_t>::max(), option);
    return camera;
}

/// The kind of file: what --format says, or else its name, which has to be one of `extensions` then.
ImageKind settled_kind(const std::string& output, const std::string& format, const char* extensions) {
    if (output == "-") throw CLI::ValidationError("-o", "pictures go into files; use 'tovix stream -o -' for a pipe");
    const std::optional<ImageKind> kind = format.empty() ? kind_of(output) : kind_of("frame." + format);
    if (!kind)
        throw CLI::ValidationError("-o",
                                   "'" + printable(output) + "' does not end in " + extensions + "; say --format");
    return *kind;
}

/// What CLI11 fills in while it parses, beside the options of pictures.
struct Values {
    GlobalOptions global;
    ListOptions list;
    InfoOptions info;
    GetOptions get;
    SetOptions set;
    AutoOptions automatic;
    CaptureOptions capture;
    ConvertOptions convert;
    StreamOptions stream;
    SimulateOptions simulate;
    bool one_shot = false;
    std::string capture_format, convert_format, stream_output;
};

class Parser {
  public:
    Parser() {
        app_.name("tovix");
        app_.description("Find, try out and use Tovix cameras.");
        app_.footer(kExamples);
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.set_version_flag("--version", "tovix " TOVIX_VERSION, "Print the version and leave");
        simulate_ = app_.add_flag("--simulate")
                        ->description("Use a simulated camera, or several; --simulate=MODEL[:SERIAL]")
                        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        view_.push_back(app_.add_option("--picture", values_.global.view.picture,
                                        "PNG file that simulated cameras look at;\nif not given, a test chart")
                            ->type_name("FILE")
                            ->check(CLI::Validator(CLI::ExistingFile).description("")));
        const auto take_light = [this](const std::string& value) {
            values_.global.view.light = parse_three(value, 0.0, 1000.0, "--light");
        };
        view_.push_back(
            app_.add_option_function<std::string>("--light", take_light, "Colour of the light on it (1,1,1)")
                ->type_name("R,G,B"));
        view_.push_back(add_number(app_, "--blur", "PIXELS", values_.global.view.blur, 0.0, 32.0,
                                   "How far out of focus it is (0)"));
        view_.push_back(add_number(app_, "--noise", "LEVELS", values_.global.view.noise, 0.0, 255.0,
                                   "Noise of the simulated sensors (1)"));
        app_.add_option("--resources", values_.global.resources, "Directory with firmware and FPGA images")
            ->type_name("DIR")
            ->check(CLI::Validator(CLI::ExistingDirectory).description(""));
        app_.add_flag("--verbose", values_.global.verbose, "Show each step of the library");
        add_list();
        add_info();
        add_get();
        add_set();
        add_auto();
        add_capture();
        add_convert();
        add_stream();
        add_simulate();
    }

    /// Any number of times; CLI11 forgets by itself what it parsed before.
    std::variant<Arguments, int> parse(int argc, char** argv) {
        values_ = {};
        rendering_.forget();
        convert_rendering_.forget();
        try {
            app_.parse(argc, argv);
            for (const std::string& value : simulate_->results())
                values_.global.simulated.push_back(parse_simulated(value, "--simulate"));
            for (const CLI::Option* const option : view_) {
                if (*option && !*simulate_ && !*serve_) throw CLI::RequiresError(option->get_name(), "--simulate");
            }
            return Arguments{values_.global, chosen()};
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) return app_.exit(error);
            // An unknown word says more than that a command is missing.
            const std::vector<std::string> unknown = app_.remaining();
            const std::string what = unknown.empty() ? error.what() : "there is no '" + unknown.front() + "'";
            std::fprintf(stderr, "tovix: %s; see tovix --help\n", printable(what).c_str());
            return kWrongUsage;
        }
    }

  private:
    void add_list() {
        list_ = app_.add_subcommand("list", "List the attached cameras");
        list_->add_flag("--json", values_.list.json, "Answer in JSON");
    }

    void add_info() {
        info_ = app_.add_subcommand("info", "Show what a camera says of itself");
        info_->add_option("--camera", values_.info.camera, kSelectorHelp)->type_name("SEL");
        info_->add_flag("--json", values_.info.json, "Answer in JSON");
    }

    void add_get() {
        get_ = app_.add_subcommand("get", "Read properties");
        const auto take = [this](const std::vector<std::string>& words) {
            for (const std::string& word : words)
                values_.get.properties.push_back(property_argument(word));
        };
        get_->add_option_function<std::vector<std::string>>("NAME", take, "Names or numbers; if not given, all");
        get_->add_option("--camera", values_.get.camera, kSelectorHelp)->type_name("SEL");
        get_->add_flag("--json", values_.get.json, "Answer in JSON, with ranges, units and flags");
        get_->footer(kPropertyHelp);
    }

    void add_set() {
        set_ = app_.add_subcommand("set", "Set properties, all or none, and show what the camera made of it");
        const auto take = [this](const std::vector<std::string>& words) {
            for (const std::string& word : words)
                values_.set.settings.push_back(setting_argument(word, "NAME=VALUE"));
        };
        set_->add_option_function<std::vector<std::string>>("NAME=VALUE", take, "Properties and their values")
            ->required();
        set_->add_option("--camera", values_.set.camera, kSelectorHelp)->type_name("SEL");
        set_->add_flag("--json", values_.set.json, "Answer in JSON, with ranges, units and flags");
        set_->footer(kPropertyHelp);
    }

    void add_auto() {
        AutoOptions& options = values_.automatic;
        auto_ = app_.add_subcommand("auto", "Let the camera find a setting, a line a step");
        const auto take = [this](const std::string& word) {
            values_.automatic.what = adjustment_argument(word, "WHAT");
        };
        auto_->add_option_function<std::string>("WHAT", take, kAdjustments)->required();
        auto_->add_option("--camera", options.camera, kSelectorHelp)->type_name("SEL");
        const auto adjustment_options = add_adjustment_options(*auto_, options.adjustment);
        target_ = adjustment_options[1];
        add_settings(*auto_, options.settings);
        auto_->add_flag("--one-shot", values_.one_shot, "white-balance: in one step, by the camera's gains alone");
        add_number(*auto_, "--timeout", "S", options.timeout_s, 0.001, 86'400.0, kTimeoutHelp);
        auto_->add_flag("--json", options.json, "Answer in JSON");
        auto_->footer(
            "The white balances need something grey in the rectangle, neither dark nor at the top\n"
            "of the range: adjust the exposure first. What digital-white-balance finds ends with\n"
            "the command; 'tovix capture --auto digital-white-balance' makes pictures with it.");
    }

    void add_capture() {
        constexpr std::uint16_t kMost = std::numeric_limits<std::uint16_t>::max();
        CaptureOptions& options = values_.capture;
        capture_ = app_.add_subcommand("capture", "Write frames to files");
        capture_->add_option("--camera", options.camera, kSelectorHelp)->type_name("SEL");
        add_number(*capture_, "-n,--count", "N", options.count, 1u, 1'000'000u, "Number of frames (1)");
        capture_
            ->add_option("-o,--output", options.output,
                         "File (frame.png). Of several frames each gets a number:\n"
                         "frame-0001.png, or where the name has %04d")
            ->type_name("FILE");
        capture_
            ->add_option("--format", values_.capture_format,
                         "png, tiff, or raw: the samples, described in FILE.txt;\n"
                         "if not given, by the name")
            ->type_name("raw|png|tiff")
            ->check(CLI::IsMember({"raw", "png", "tiff"}).description(""));
        add_pair(*capture_, "--size", 'x', false, options.size, 1, kMost, "Area of the sensor, in its pixels")
            ->type_name("WxH");
        add_pair(*capture_, "--offset", ',', false, options.offset, 0, kMost, "Left and top edge of the area (0,0)")
            ->type_name("X,Y");
        add_pair(*capture_, "--subsample", 'x', true, options.subsampling, 1, 255, "Read every Nth pixel")
            ->type_name("N|NxM");
        add_number(*capture_, "--rate", "R", options.data_rate, 0u, std::numeric_limits<std::uint32_t>::max(),
                   "Data rate, one of those that info shows");
        add_number(*capture_, "--timeout", "S", options.timeout_s, 0.001, 86'400.0, kTimeoutHelp);
        add_settings(*capture_, options.settings);
        const auto take = [this](const std::vector<std::string>& words) {
            for (const std::string& word : words)
                values_.capture.adjustments.push_back(adjustment_argument(word, "--auto"));
        };
        CLI::Option* const automatic =
            capture_
                ->add_option_function<std::vector<std::string>>(
                    "--auto", take, "Let the camera find a setting first, see auto --help;\nseveral in this order")
                ->type_name("WHAT")
                ->allow_extra_args(false);
        for (CLI::Option* const option : add_adjustment_options(*capture_, options.adjustment))
            option->needs(automatic);
        rendering_.add_to(*capture_);
        capture_->footer("The names of the files are printed as each is complete.");
    }

    void add_convert() {
        ConvertOptions& options = values_.convert;
        convert_ = app_.add_subcommand("convert", "Make a picture of a saved raw frame, without a camera");
        convert_->add_option("RAW", options.raw, "File with the samples of one frame")->required();
        convert_->add_option("-o,--output", options.output, "File")->type_name("FILE")->required();
        convert_->add_option("--format", values_.convert_format, "png or tiff; if not given, by the name")
            ->type_name("png|tiff")
            ->check(CLI::IsMember({"png", "tiff"}).description(""));
        add_number(*convert_, "--width", "N", options.facts.width, 1u, kMaxSide, "Samples a row");
        add_number(*convert_, "--height", "N", options.facts.height, 1u, kMaxSide, "Rows");
        add_choice(*convert_, "--depth", options.facts.bits, {{"8", 8u}, {"16", 16u}}, "Bits of a sample (8)");
        add_choice(*convert_, "--byte-order", options.facts.msb_first, {{"little", false}, {"big", true}},
                   "Of samples of 16 bits (little)");
        convert_->add_option("--phase", options.facts.color_filter, "Colours of the first two rows")
            ->type_name("RGGB|GRBG|GBRG|BGGR|none")
            ->check(CLI::IsMember({"RGGB", "GRBG", "GBRG", "BGGR", "none"}).description(""));
        CLI::Option* const model = convert_->add_option("--model", options.facts.model, "Model with the matrices");
        const auto parse_product = [this](const std::string& value) {
            const bool hex = value.starts_with("0x") || value.starts_with("0X");
            values_.convert.facts.product_id =
                parse_number<std::uint16_t>(std::string_view(value).substr(hex ? 2 : 0), 0,
                                            std::numeric_limits<std::uint16_t>::max(), "--product", hex ? 16 : 10);
        };
        convert_->add_option_function<std::string>("--product", parse_product, "The same by USB product ID")
            ->type_name("ID")
            ->excludes(model);
        convert_rendering_.add_to(*convert_);
        convert_->footer(
            "A frame that capture saved needs none of --width to --product: RAW.txt beside it\n"
            "says all that. Options go before what is said there.");
    }

    void add_stream() {
        StreamOptions& options = values_.stream;
        stream_ = app_.add_subcommand("stream", "Run the stream: measure it, or hand the frames to a pipe");
        stream_->add_option("--camera", options.camera, kSelectorHelp)->type_name("SEL");
        CLI::Option* const count = add_number(*stream_, "-n,--count", "N", options.count, 1u,
                                              std::numeric_limits<std::uint32_t>::max(), "Stop after N frames");
        add_number(*stream_, "--seconds", "S", options.seconds, 0.001, 1e9, "Stop after S seconds")->excludes(count);
        stream_->add_flag("--stats", options.stats,
                          "Also skipped frames and the time between frames;\n"
                          "on a terminal every second");
        CLI::Option* const json = stream_->add_flag("--json", options.json, "Answer in JSON");
        stream_->add_option("-o,--output", values_.stream_output, "- writes the raw frames to standard output")
            ->type_name("-")
            ->check(CLI::IsMember({"-"}).description(""))
            ->excludes(json);
        add_number(*stream_, "--timeout", "S", options.timeout_s, 0.001, 86'400.0, kTimeoutHelp);
        stream_->footer(
            "Without -n and --seconds it runs until it is interrupted. Only simulated cameras\n"
            "number their frames, so of others skipped frames cannot be told.");
    }

    void add_simulate() {
        SimulateOptions& options = values_.simulate;
        serve_ = app_.add_subcommand("simulate", "Lend simulated cameras to other programs and machines");
        serve_->add_flag("--usbip")->description("Over USB/IP, which Linux takes for a real bus")->required();
        const auto take = [this](const std::vector<std::string>& words) {
            for (const std::string& word : words)
                values_.simulate.cameras.push_back(parse_simulated(word, "--model"));
        };
        serve_
            ->add_option_function<std::vector<std::string>>("--model", take,
                                                            "A camera, or several; if not given, the first model")
            ->type_name("MODEL[:SERIAL]")
            ->allow_extra_args(false);
        serve_->add_flag("--ready", options.ready,
                         "With firmware and FPGA image; if not given, bare:\n"
                         "attach a camera again once it has its firmware");
        serve_
            ->add_option("--address", options.address,
                         "Where to listen (127.0.0.1). Whoever reaches it may\n"
                         "use the cameras; 0.0.0.0 is everybody")
            ->type_name("HOST");
        add_number(*serve_, "--port", "N", options.port, std::uint16_t{0}, std::numeric_limits<std::uint16_t>::max(),
                   "TCP port (3240); 0: one that is free");
        serve_->add_flag("--json", options.json, "Answer in JSON");
        serve_->footer(
            "Runs until it is interrupted. On the machine that is to have the cameras:\n"
            "  modprobe vhci-hcd\n"
            "  usbip attach -r HOST -b 1-1        the second one is 1-2, and so on\n"
            "  tovix --resources DIR list         DIR: firmware of the simulated cameras");
    }

    /// The command that was given, with what concerns several of its options settled.
    Command chosen() {
        if (list_->parsed()) return values_.list;
        if (info_->parsed()) return values_.info;
        if (get_->parsed()) return values_.get;
        if (set_->parsed()) return values_.set;
        if (auto_->parsed()) return chosen_auto();
        if (capture_->parsed()) return chosen_capture();
        if (convert_->parsed()) return chosen_convert();
        if (serve_->parsed()) return chosen_simulate();
        values_.stream.to_stdout = !values_.stream_output.empty();
        if (values_.stream.to_stdout && isatty(STDOUT_FILENO) == 1)
            throw CLI::ValidationError("-o", "frames do not belong on a terminal; give a pipe or a file");
        return values_.stream;
    }

    Command chosen_simulate() {
        if (*simulate_) throw CLI::ValidationError("--simulate", "the command says which cameras with --model");
        if (values_.simulate.cameras.empty()) values_.simulate.cameras.emplace_back();
        return values_.simulate;
    }

    Command chosen_auto() {
        AutoOptions& options = values_.automatic;
        if (values_.one_shot && options.what != Adjustment::kWhiteBalance)
            throw CLI::ValidationError("--one-shot", "only white-balance can be done in one step");
        if (values_.one_shot) options.what = Adjustment::kOneShotWhiteBalance;
        if (*target_ && options.what != Adjustment::kExposure && options.what != Adjustment::kGain)
            throw CLI::ValidationError("--target", "only exposure and gain aim at a level");
        return options;
    }

    Command chosen_capture() {
        CaptureOptions& options = values_.capture;
        if (options.output.empty())
            options.output = values_.capture_format.empty() ? "frame.png" : "frame." + values_.capture_format;
        options.kind = settled_kind(options.output, values_.capture_format, ".png, .tif, .tiff or .raw");
        options.rendering = rendering_.settled(options.kind);
        const bool balances = std::ranges::count(options.adjustments, Adjustment::kDigitalWhiteBalance) != 0;
        if (balances && options.rendering.gains)
            throw CLI::ValidationError("--gains", "digital-white-balance finds them; give one or the other");
        if (options.kind == ImageKind::kRaw) {
            for (const PropertySetting& setting : options.settings) {
                if (setting.property->kept_by == TOVIX_KEPT_BY_CONVERSION)
                    throw CLI::ValidationError("--set", setting.word + ": raw files hold the samples as they are");
            }
            if (balances) throw CLI::ValidationError("--auto", "raw files hold the samples as they are");
        }
        return options;
    }

    Command chosen_convert() {
        ConvertOptions& options = values_.convert;
        options.kind = settled_kind(options.output, values_.convert_format, ".png, .tif or .tiff");
        if (options.kind == ImageKind::kRaw)
            throw CLI::ValidationError("-o", "a picture is no raw file; give a name that ends in .png or .tif");
        options.rendering = convert_rendering_.settled(options.kind);
        return options;
    }

    CLI::App app_;
    CLI::Option* simulate_ = nullptr;
    std::vector<CLI::Option*> view_;  // what simulated cameras look at
    CLI::App *list_ = nullptr, *info_ = nullptr, *get_ = nullptr, *set_ = nullptr, *auto_ = nullptr;
    CLI::App *capture_ = nullptr, *convert_ = nullptr, *stream_ = nullptr, *serve_ = nullptr;
    CLI::Option* target_ = nullptr;
    Values values_;
    RenderingArguments rendering_, convert_rendering_;
};

}  // namespace

std::variant<Arguments, int> parse_arguments(int argc, char** argv) {
    static Parser parser;  // takes far longer to make than to use: tests parse many command lines
    return parser.parse(argc, argv);
}
