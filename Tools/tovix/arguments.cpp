// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>

namespace {

constexpr int kWrongUsage = 2;

constexpr char kExamples[] =
    "Examples:\n"
    "  tovix list                                     cameras that are attached\n"
    "  tovix capture -o frame.png                     a picture from the first one\n"
    "  tovix capture --camera 1001 -n 20 -o a.raw     a-0001.raw to a-0020.raw, each with a description\n"
    "  tovix --simulate capture                       the same as with a camera, without one\n"
    "  tovix --simulate=lyra03m:77 info               a simulated model, with serial number 77\n"
    "\n"
    "Answers go to standard output, messages to standard error.\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage.";

constexpr char kSelectorHelp[] = "Index, serial number, or (beginning of the) model;\nif not given, the first camera";

/// All of `digits` as a decimal number from `least` to `most`.
template <class Number>
Number parse_number(std::string_view digits, Number least, Number most, const std::string& option) {
    Number number{};
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    // Written so that what is not a number at all fails too.
    if (error != std::errc() || end != digits.data() + digits.size() || !(number >= least && number <= most))
        throw CLI::ValidationError(option, "'" + printable(std::string(digits)) + "' is not a number from " +
                                               CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most));
    return number;
}

/// An option with a decimal number, kept within its range.
template <class Number, class Target>
CLI::Option* add_number(CLI::App& app, const std::string& name, const std::string& unit, Target& target, Number least,
                        Number most, const std::string& help) {
    const auto parse = [=, &target](const std::string& value) { target = parse_number(value, least, most, name); };
    return app.add_option_function<std::string>(name, parse, help)->type_name(unit);
}

/// An option with two numbers and `separator` between them; a lone number counts twice where that is allowed.
CLI::Option* add_pair(CLI::App& app, const std::string& name, char separator, bool lone_allowed,
                      std::optional<NumberPair>& pair, std::uint16_t least, std::uint16_t most,
                      const std::string& help) {
    const auto parse = [=, &pair](const std::string& value) {
        const std::size_t at = value.find(separator);
        if (at == std::string::npos && !lone_allowed)
            throw CLI::ValidationError(name, "'" + printable(value) + "' has no '" + separator + "'");
        const std::string_view whole = value;
        const std::string_view second = at == std::string::npos ? whole : whole.substr(at + 1);
        pair =
            NumberPair{parse_number(whole.substr(0, at), least, most, name), parse_number(second, least, most, name)};
    };
    return app.add_option_function<std::string>(name, parse, help);
}

/// MODEL, MODEL:SERIAL, or nothing but the flag.
SimulatedCamera parse_simulated(const std::string& value) {
    if (value == "true") return {};  // a flag without a value
    const std::size_t colon = value.find(':');
    SimulatedCamera camera{.model = value.substr(0, colon)};
    if (colon != std::string::npos)
        camera.serial_number = parse_number<std::uint32_t>(std::string_view(value).substr(colon + 1), 1,
                                                           std::numeric_limits<std::uint32_t>::max(), "--simulate");
    return camera;
}

/// The file's name and kind, once both options have been read.
void settle_output(CaptureOptions& options, const std::string& format) {
    if (options.output == "-")
        throw CLI::ValidationError("-o", "capture writes files; use 'tovix stream -o -' for a pipe");
    if (options.output.empty()) options.output = format == "raw" ? "frame.raw" : "frame.png";
    const std::optional<ImageKind> by_name = kind_of(options.output);
    if (format.empty() && !by_name)
        throw CLI::ValidationError(
            "-o", "'" + printable(options.output) + "' ends neither in .png nor in .raw; say --format");
    options.kind = format.empty() ? *by_name : format == "raw" ? ImageKind::kRaw : ImageKind::kPng;
}

/// What CLI11 fills in while it parses, and what becomes of it.
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
        app_.add_option("--resources", global_.resources, "Directory with firmware and FPGA images")
            ->type_name("DIR")
            ->check(CLI::Validator(CLI::ExistingDirectory).description(""));
        app_.add_flag("--verbose", global_.verbose, "Show each step of the library");
        add_list();
        add_info();
        add_capture();
        add_stream();
    }

    std::variant<Arguments, int> parse(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
            for (const std::string& value : simulate_->results())
                global_.simulated.push_back(parse_simulated(value));
            return Arguments{global_, chosen()};
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
        list_->add_flag("--json", list_options_.json, "Answer in JSON");
    }

    void add_info() {
        info_ = app_.add_subcommand("info", "Show what a camera says of itself");
        info_->add_option("--camera", info_options_.camera, kSelectorHelp)->type_name("SEL");
        info_->add_flag("--json", info_options_.json, "Answer in JSON");
    }

    void add_capture() {
        constexpr std::uint16_t kMost = std::numeric_limits<std::uint16_t>::max();
        CaptureOptions& options = capture_options_;
        capture_ = app_.add_subcommand("capture", "Write frames to files");
        capture_->add_option("--camera", options.camera, kSelectorHelp)->type_name("SEL");
        add_number(*capture_, "-n", "N", options.count, 1u, 1'000'000u, "Number of frames (1)");
        capture_
            ->add_option("-o,--output", options.output,
                         "File (frame.png). Of several frames each gets a number:\n"
                         "frame-0001.png, or where the name has %04d")
            ->type_name("FILE");
        capture_
            ->add_option("--format", format_,
                         "png, or raw: the samples, described in FILE.txt;\n"
                         "if not given, by the name")
            ->type_name("raw|png")
            ->check(CLI::IsMember({"raw", "png"}).description(""));
        add_pair(*capture_, "--size", 'x', false, options.size, 1, kMost, "Area of the sensor, in its pixels")
            ->type_name("WxH");
        add_pair(*capture_, "--offset", ',', false, options.offset, 0, kMost, "Left and top edge of the area (0,0)")
            ->type_name("X,Y");
        add_pair(*capture_, "--subsample", 'x', true, options.subsampling, 1, 255, "Read every Nth pixel")
            ->type_name("N|NxM");
        add_number(*capture_, "--rate", "R", options.data_rate, 0u, std::numeric_limits<std::uint32_t>::max(),
                   "Data rate, one of those that info shows");
        add_number(*capture_, "--timeout", "S", options.timeout_s, 0.001, 86'400.0, "Longest wait for a frame (10)");
        capture_->footer("The names of the files are printed as each is complete.");
    }

    void add_stream() {
        StreamOptions& options = stream_options_;
        stream_ = app_.add_subcommand("stream", "Run the stream: measure it, or hand the frames to a pipe");
        stream_->add_option("--camera", options.camera, kSelectorHelp)->type_name("SEL");
        CLI::Option* const count = add_number(*stream_, "-n", "N", options.count, 1u,
                                              std::numeric_limits<std::uint32_t>::max(), "Stop after N frames");
        add_number(*stream_, "--seconds", "S", options.seconds, 0.001, 1e9, "Stop after S seconds")->excludes(count);
        stream_->add_flag("--stats", options.stats,
                          "Also skipped frames and the time between frames;\n"
                          "on a terminal every second");
        CLI::Option* const json = stream_->add_flag("--json", options.json, "Answer in JSON");
        stream_->add_option("-o,--output", stream_output_, "- writes the raw frames to standard output")
            ->type_name("-")
            ->check(CLI::IsMember({"-"}).description(""))
            ->excludes(json);
        add_number(*stream_, "--timeout", "S", options.timeout_s, 0.001, 86'400.0, "Longest wait for a frame (10)");
        stream_->footer(
            "Without -n and --seconds it runs until it is interrupted. Only simulated cameras\n"
            "number their frames, so of others skipped frames cannot be told.");
    }

    /// The command that was given, with what concerns several of its options settled.
    Command chosen() {
        if (list_->parsed()) return list_options_;
        if (info_->parsed()) return info_options_;
        if (capture_->parsed()) {
            settle_output(capture_options_, format_);
            return capture_options_;
        }
        stream_options_.to_stdout = !stream_output_.empty();
        if (stream_options_.to_stdout && isatty(STDOUT_FILENO) == 1)
            throw CLI::ValidationError("-o", "frames do not belong on a terminal; give a pipe or a file");
        return stream_options_;
    }

    CLI::App app_;
    CLI::Option* simulate_ = nullptr;
    CLI::App *list_ = nullptr, *info_ = nullptr, *capture_ = nullptr, *stream_ = nullptr;
    GlobalOptions global_;
    ListOptions list_options_;
    InfoOptions info_options_;
    CaptureOptions capture_options_;
    StreamOptions stream_options_;
    std::string format_, stream_output_;
};

}  // namespace

std::variant<Arguments, int> parse_arguments(int argc, char** argv) {
    return Parser().parse(argc, argv);
}
