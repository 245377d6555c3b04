// SPDX-License-Identifier: Apache-2.0
// Writes the resource directory that the simulated cameras boot from: for every row of the camera table a
// firmware file and an FPGA image. They hold nothing but what the simulated devices check, and filling.
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "camera_table.h"
#include "models.h"
#include "wire.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tovix::simulator::Model;
using tovix::simulator::put_u16;
using tovix::simulator::put_u32;

constexpr std::size_t kCodeBytes = 700;
constexpr std::size_t kImageBytes = 3000;
constexpr std::size_t kRecordBytes = 16;

/// Filling that differs from model to model and is the same on every machine.
Bytes filling(const Model& model, std::size_t size) {
    std::minstd_rand numbers(model.row->product_id * 16u + model.release + 1u);
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(numbers() >> 8);
    return bytes;
}

std::uint32_t crc_of(const Bytes& bytes) {
    return static_cast<std::uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

/// The memory image of a firmware, as the simulated FX2 wants it.
Bytes firmware_image(const Model& model) {
    const Bytes code = filling(model, kCodeBytes);
    Bytes image(0x100);
    image[0] = 0x02;  // LJMP 0x0100
    image[1] = 0x01;
    std::uint8_t* const descriptor = &image[0x80];
    descriptor[0] = 18;
    descriptor[1] = 1;
    put_u16(descriptor + 8, model.row->vendor_id);
    put_u16(descriptor + 10, model.row->product_id);
    put_u16(descriptor + 12, model.release);
    put_u16(&image[0x92], static_cast<std::uint16_t>(code.size()));
    put_u32(&image[0x94], crc_of(code));
    image.insert(image.end(), code.begin(), code.end());
    return image;
}

void write_hex_record(std::ofstream& file, std::uint16_t address, std::uint8_t type, const Bytes& data) {
    Bytes record{static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(address >> 8),
                 static_cast<std::uint8_t>(address), type};
    record.insert(record.end(), data.begin(), data.end());
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : record)
        sum = static_cast<std::uint8_t>(sum + byte);
    record.push_back(static_cast<std::uint8_t>(-sum));
    file << ':';
    for (const std::uint8_t byte : record) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", unsigned{byte});
        file << digits;
    }
    file << '\n';
}

void write_firmware(const std::filesystem::path& path, const Bytes& image) {
    std::ofstream file(path);
    for (std::size_t at = 0; at < image.size(); at += kRecordBytes) {
        const std::size_t end = std::min(at + kRecordBytes, image.size());
        const Bytes data(image.begin() + static_cast<std::ptrdiff_t>(at),
                         image.begin() + static_cast<std::ptrdiff_t>(end));
        write_hex_record(file, static_cast<std::uint16_t>(at), 0, data);
    }
    write_hex_record(file, 0, 1, {});
}

void write_fpga_image(const std::filesystem::path& path, const Model& model) {
    const Bytes body = filling(model, kImageBytes);
    Bytes header{'T', 'V', 'X', 'F', 'P', 'G', 'A', '1', 0, 0, 0, 0, 0, 0, 0, 0};
    put_u32(&header[8], static_cast<std::uint32_t>(body.size()));
    put_u32(&header[12], crc_of(body));
    std::ofstream file(path, std::ios::binary);
    for (const Bytes& part : {header, body})
        file.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_resources DIRECTORY\n");
        return 2;
    }
    if (!set_resource_root(argv[1])) return 1;
    for (int i = camera_id_count - 1; i >= 0; --i) {  // the first of several releases that share a file writes it last
        const Model model = tovix::simulator::model_of_row(i);
        const std::filesystem::path firmware = resource_path(model.row->firmware_file, model.release).text;
        std::filesystem::create_directories(firmware.parent_path());
        write_firmware(firmware, firmware_image(model));
        if (model.has_fpga()) write_fpga_image(resource_path(model.row->fpga_file, model.release).text, model);
    }
}
