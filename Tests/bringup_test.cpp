// SPDX-License-Identifier: Apache-2.0
// From a bare FX2 to a camera: firmware, re-enumeration, FPGA.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "firmware.h"
#include "fpga.h"
#include "hex_file.h"
#include "search.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;
using State = DeviceOptions::State;

/// A directory of its own for a test's files.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        char path[] = "/tmp/tovix-test-XXXXXX";
        path_ = ::mkdtemp(path);
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    const std::filesystem::path& path() const { return path_; }
    void write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary) << text;
    }

  private:
    std::filesystem::path path_;
};

/// The records of a HEX text: what a reader gives, record by record, until it ends.
struct HexRecord {
    std::int32_t result;
    std::uint16_t address;
    std::vector<std::uint8_t> data;
    bool operator==(const HexRecord&) const = default;
};
std::vector<HexRecord> read_hex(const std::string& text) {
    FILE* const file = ::tmpfile();
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    std::vector<HexRecord> records;
    std::int32_t result = 1;
    while (result > 0) {
        usb_firmware_header header{};
        std::uint8_t data[kMaxRecordBytes];
        result = hex_read_section(::fileno(file), &header, data);
        records.push_back({result, header.address, {}});
        if (result > 0) records.back().data.assign(data, data + result);
    }
    std::fclose(file);
    return records;
}

TEST(HexFile, ReadsRecordsAsTheyAre) {
    EXPECT_EQ(read_hex(":02010000AABB98\n:00000001FF\n"),
              (std::vector<HexRecord>{{2, 0x0100, {0xAA, 0xBB}}, {0, 0, {}}}));
    EXPECT_EQ(read_hex("\r\n \t\v\f:01FFFF00C9FF\r\n"), (std::vector<HexRecord>{{1, 0xFFFF, {0xC9}}, {0, 0, {}}}))
        << "white space, a wrong checksum, no last record";
    EXPECT_EQ(read_hex(":0100000zz200"), (std::vector<HexRecord>{{1, 0, {0}}, {0, 0, {}}}))
        << "digits that are none end a number";
    EXPECT_EQ(read_hex(""), (std::vector<HexRecord>{{0, 0, {}}}));
    EXPECT_EQ(read_hex("; comment"), (std::vector<HexRecord>{{-1, 0, {}}}));
    const std::string full = ":FF000000" + std::string(510, 'A') + "00";
    EXPECT_EQ(read_hex(full)[0].data, std::vector<std::uint8_t>(255, 0xAA));
    for (std::size_t length = 1; length < full.size(); ++length)
        ASSERT_EQ(read_hex(full.substr(0, length))[0].result, -1) << "cut off after " << length;
}

std::vector<std::string> bring_up(Port& port, std::string* printed = nullptr) {
    std::vector<std::string> lines;
    port.access()->set_observer(
        [&lines](const tovix::simulator::Transfer& transfer) { lines.push_back(transfer.text()); });
    usb_init = 0;
    const std::string text = printed_by([&] { EXPECT_EQ(tovix_init(TOVIX_RESOURCES), 0); });
    if (printed != nullptr) *printed = text;
    port.access()->set_observer({});
    return lines;
}

TEST(BringUp, GoesStepByStepFromABareFx2) {
    SimulatedBus bus;
    std::string printed;
    const std::vector<std::string> lines = bring_up(bus.attach("mira13c", State::kBare), &printed);

    // Descriptors, CPU held, 59 records of 16 bytes and one of 12, CPU released, off the bus, and back as a camera.
    std::size_t at = 0;
    const auto expect = [&](const std::string& line) {
        ASSERT_LT(at, lines.size());
        EXPECT_EQ(lines[at].substr(0, line.size()), line) << "transfer " << at;
        ++at;
    };
    expect("control 80 06 value=0100 index=0000 length=18 done 18: 12 01 00 02 FF FF FF");
    expect("control 80 06 value=0200 index=0000 length=9 done 9: 09 02");
    expect("control 00 09 value=0001 index=0000 length=0 done 0:");
    expect("control 40 A0 value=E600 index=0000 length=1 done 1: 01");
    expect("control 40 A0 value=0000 index=0000 length=16 done 16: 02 01 00");
    for (int i = 0; i < 58; ++i)
        expect("control 40 A0 value=");
    expect("control 40 A0 value=03B0 index=0000 length=12 done 12:");
    expect("control 40 A0 value=E600 index=0000 length=1 done 1: 00");
    expect("detach");
    expect("attach");
    expect("control 80 06 value=0100 index=0000 length=18 done 18: 12 01 00 02 FF 00 00");
    // Then the FPGA pass: open, control register, image, polls, and back to setting 0.
    const auto fpga = std::find(lines.begin() + static_cast<std::ptrdiff_t>(at), lines.end(),
                                "control C0 12 value=0000 index=0008 length=4 done 4: 00 00 00 00");
    ASSERT_NE(fpga, lines.end());
    const std::vector<std::string> tail(fpga + 1, lines.end());
    EXPECT_EQ(tail, (std::vector<std::string>{
                        "control 01 0B value=0001 index=0000 length=0 done 0:",
                        "control 02 01 value=0000 index=0002 length=0 done 0:",
                        "control 40 12 value=0000 index=0008 length=4 done 4: FF FF FF FF",
                        "bulk out done 3016: 54 56 58 46 50 47 41 31 B8 0B 00 00 01 5A 9A 17",
                        "control 40 12 value=0000 index=0008 length=4 done 4: 00 00 00 00",
                        "control C0 12 value=0000 index=0008 length=4 done 4: 00 00 00 00",
                        "control C0 12 value=0000 index=0008 length=4 done 4: 00 00 00 00",
                        "control C0 12 value=0000 index=0008 length=4 done 4: 20 00 00 00",
                        "control 01 0B value=0000 index=0000 length=0 done 0:",
                        "control 01 0B value=0000 index=0000 length=0 done 0:",
                    }));
    EXPECT_EQ(printed,
              "Raw device added.\nVID = 0xE6C1\nPID = 0x8113\nDID = 0x0\n"
              "myAnchorFX2WriteFirmWare reset FX2 successfully\nmyAnchorFX2WriteFirmWare reset FX2 successfully\n"
              "FW was downloaded to device\n"
              "model name: 'mira13c'\nsn=1, rel=0, fw=00010203, speed=2\n"
              "params: size=1280x1024, max_size=1280x1024, position=0x0\nformat: rggb\n"
              "subsampling is available: max=4\nkps: min=5000, max=40000\nkps count: 5\ncurrent kps: 40000\n"
              "loading FPGA binary from disk\nsending FPGA binary to camera\nsent FPGA binary to camera\nFPGA "
              "loaded\n");
    if (std::getenv("TOVIX_PRINT_TRANSCRIPT") != nullptr)
        for (const std::string& line : lines)
            std::puts(line.c_str());
}

TEST(BringUp, TakesTheTimeOfItsPauses) {
    // Two pauses of 250 ms, 2.5 s for the way back, 20 ms after the image, 10 ms before each of three polls.
    SimulatedBus bus;
    Port& port = bus.attach("mira13c", State::kBare);
    bring_up(port);
    EXPECT_EQ(bus->now_us(), 500'000 + 2'500'000 + 20'000 + 3 * 10'000);
    // A configured camera is opened, read once and closed; no pause, no write to its FPGA.
    const std::int64_t before_us = bus->now_us();
    for (const std::string& line : bring_up(port)) {
        EXPECT_EQ(line.find("control 40 12 value=0000 index=0008"), std::string::npos) << line;
        EXPECT_EQ(line.find("bulk"), std::string::npos) << line;
    }
    EXPECT_EQ(bus->now_us(), before_us);
}

TEST(BringUp, EveryModelComesUp) {
    for (int i = 0; i < camera_id_count; ++i) {
        const tovix::simulator::Model model = tovix::simulator::model_of_row(i);
        SimulatedBus bus;
        bring_up(bus.attach(model.name, State::kBare));
        _tovix* camera = nullptr;
        ASSERT_EQ(tovix_camera_open_by_pid(&camera, model.row->product_id), 0);
        ASSERT_NE(camera, nullptr) << model.name;
        tovix_version version{};
        EXPECT_EQ(tovix_get_version(camera, &version), 0);
        EXPECT_EQ(version.release_number, model.release);
        EXPECT_EQ(tovix_camera_close(&camera), 0);
    }
}

TEST(BringUp, SecondStartOnlyChangesTheDirectory) {
    SimulatedBus bus;
    usb_init = 0;
    EXPECT_EQ(tovix_init(nullptr), 0);
    EXPECT_STREQ(RESOURCE_FILE_ROOT, "/Library/Frameworks/TovixSDK.framework/Resources/files");
    const std::uint64_t operations = bus->operations();
    EXPECT_EQ(tovix_init("/elsewhere"), 0);
    EXPECT_STREQ(RESOURCE_FILE_ROOT, "/elsewhere");
    EXPECT_EQ(bus->operations(), operations) << "nothing is searched";
}

/// What start-up prints with these resources, and whether the camera is up afterwards.
std::string start_with(const TemporaryDirectory& files, State state, bool* up) {
    SimulatedBus bus;
    bus.attach("mira13c", state);
    usb_init = 0;
    std::string text = printed_by([&] { EXPECT_EQ(tovix_init(files.path().c_str()), 0); });
    for (auto place = text.find(files.path()); place != std::string::npos; place = text.find(files.path()))
        text.replace(place, files.path().string().size(), "DIR");
    std::uint32_t count = 0;
    StderrCapture quiet;
    *up = tovix_enum_cameras(nullptr, &count) == 1;
    return text;
}

std::string file_text(const std::string& name) {
    std::ifstream file(std::string(TOVIX_RESOURCES "/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Firmware, BadFilesAreReported) {
    const std::string good = file_text("mira13c/firm0.HEX"), without_end = good.substr(0, good.rfind(':'));
    const std::string head = "Raw device added.\nVID = 0xE6C1\nPID = 0x8113\nDID = 0x0\n";
    const std::string reset = "myAnchorFX2WriteFirmWare reset FX2 successfully\n";
    const std::string bad = head + reset + "error: unable to read header from file: Bad message";
    const std::string downloaded = reset + "FW was downloaded to device\n";
    const struct {
        const char* what;
        std::string text, printed;
        bool up;
    } cases[] = {
        {"good", good, head + reset + downloaded, true},
        {"no last record", without_end, head + reset + downloaded, true},
        {"stray character", without_end + "#", bad + downloaded, true},
        {"cut off", good.substr(0, good.size() / 2), bad + downloaded, false},
        {"empty", "", head + reset + downloaded, false},
    };
    for (const auto& [what, text, printed, up] : cases) {
        TemporaryDirectory files;
        files.write("mira13c/firm0.HEX", text);
        files.write("mira13c/fpga0.rbf", file_text("mira13c/fpga0.rbf"));
        bool is_up = false;
        EXPECT_EQ(start_with(files, State::kBare, &is_up).substr(0, printed.size()), printed) << what;
        EXPECT_EQ(is_up, up) << what;
    }
    bool up = true;
    EXPECT_EQ(start_with(TemporaryDirectory(), State::kBare, &up),
              head + "error: unable to open firmware file DIR/mira13c/firm0.HEX\n" +
                  "unable to download to device: -1 ffffffff\n");
    EXPECT_FALSE(up);
}

TEST(Firmware, AHeldDeviceIsTriedFiveTimes) {
    SimulatedBus bus;
    bus.attach("mira13c", State::kBare);
    bus->plant({.operation = tovix::platform::Operation::kUSBDeviceOpen,
                .skip = 0,
                .times = 9,
                .status = kIOReturnExclusiveAccess});
    std::string expected = "Raw device added.\nVID = 0xE6C1\nPID = 0x8113\nDID = 0x0\n";
    for (const char attempt : {'1', '2', '3', '4', '5'})
        expected += std::string("Exclusive access err, sleeping on it ") + attempt + "\n";
    usb_init = 0;
    EXPECT_EQ(printed_by([] { tovix_init(TOVIX_RESOURCES); }), expected + "unable to open device: e00002c5\n");
    EXPECT_EQ(bus->now_us(), 500'000);
}

TEST(Fpga, BadImagesAreReported) {
    const std::string refused = "error: unable to load FPGA\nusb_load_fpga: unable to load FPGA: timeout\n";
    const std::string no_size = "error: unable to get file size: ";
    using Files = const TemporaryDirectory&;
    const struct {
        const char* what;
        std::function<void(Files)> make;
        std::string printed;
    } cases[] = {
        {"missing", [](Files) {},
         "error: unable to open fpga file DIR/mira13c/fpga0.rbf: No such file or directory\n" + refused},
        {"empty", [](Files files) { files.write("mira13c/fpga0.rbf", ""); }, no_size + "Invalid argument\n" + refused},
        {"directory", [](Files files) { files.write("mira13c/fpga0.rbf/file", ""); },
         no_size + "Is a directory\n" + refused},
        {"too large",
         [](Files files) {
             files.write("mira13c/fpga0.rbf", "x");
             std::filesystem::resize_file(files.path() / "mira13c/fpga0.rbf", (64u << 20) + 1);
         },
         no_size + "File too large\n" + refused},
        {"wrong image", [](Files files) { files.write("mira13c/fpga0.rbf", "no image"); },
         "sending FPGA binary to camera\nsent FPGA binary to camera\nusb_load_fpga: unable to load FPGA: timeout\n"},
    };
    for (const auto& [what, make, printed] : cases) {
        TemporaryDirectory files;
        make(files);
        bool up = false;
        const std::string text = start_with(files, State::kWithoutFpga, &up);
        const std::string expected = "loading FPGA binary from disk\n" + printed;
        EXPECT_EQ(text.substr(text.find("loading FPGA")), expected) << what;
    }
}

TEST(Fpga, PollsUpToTenTimes) {
    for (const std::uint32_t polls : {1u, 10u, 11u}) {
        SimulatedBus bus;
        bus.attach("mira13c", State::kWithoutFpga, [&](DeviceOptions& options) { options.camera.fpga_polls = polls; });
        usb_init = 0;
        const std::string text = printed_by([] { tovix_init(TOVIX_RESOURCES); });
        EXPECT_EQ(text.find("FPGA loaded\n") != std::string::npos, polls <= 10) << polls;
        EXPECT_EQ(bus->now_us(), 20'000 + std::min(polls, 10u) * 10'000);
    }
}

}  // namespace
