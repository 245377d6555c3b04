// SPDX-License-Identifier: Apache-2.0
#include "camera_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "model_data.h"
#include "stderr_capture.h"

namespace {

std::span<const camera_id> rows() {
    return {camera_ids, static_cast<std::size_t>(camera_id_count)};
}

std::int16_t i16_at(const std::uint8_t* bytes) {
    std::int16_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

TEST(CameraTable, RowsAreWhatLookupsAndStartUpRelyOn) {
    EXPECT_EQ(camera_id_count, 33);
    const auto count = [](auto holds) { return std::ranges::count_if(rows(), holds); };
    EXPECT_EQ(count([](const camera_id& row) { return row.release == kAnyRelease; }), 30);
    EXPECT_EQ(count([](const camera_id& row) { return row.subsampling; }), 5);
    EXPECT_EQ(count([](const camera_id& row) { return row.fpga_file == nullptr; }), 1);
    EXPECT_EQ(count([](const camera_id& row) { return row.product_id >= 0x8000; }), 0);
    EXPECT_EQ(count([](const camera_id& row) { return std::strchr(row.firmware_file, '/') == nullptr; }), 0);
    std::set<const void*> blocks;
    for (const camera_id& row : rows())
        blocks.insert(row.model_data);
    EXPECT_EQ(blocks.size(), 26u);
    // Rows of one product are of one vendor and stand together, or start-up would search the pair twice.
    std::set<std::uint16_t> closed;
    for (std::size_t i = 1; i < rows().size(); ++i) {
        if (rows()[i].product_id == rows()[i - 1].product_id) {
            EXPECT_EQ(rows()[i].vendor_id, rows()[i - 1].vendor_id) << "row " << i;
            continue;
        }
        closed.insert(rows()[i - 1].product_id);
        EXPECT_FALSE(closed.contains(rows()[i].product_id)) << "row " << i;
    }
}

TEST(CameraTable, MatricesKeepGrey) {
    for (const camera_id& row : rows()) {
        const void* value = nullptr;
        std::uint32_t length = 0;
        if (find_model_data(&row, kMatrixTag, &value, &length) == TOVIX_EMODEL) {
            EXPECT_EQ(row.product_id, 0x0613) << "the only one without matrices";
            continue;
        }
        ASSERT_EQ(length % 20, 0u);
        const auto* const entries = static_cast<const std::uint8_t*>(value);
        std::string ids;
        for (std::uint32_t at = 0; at < length; at += 20) {
            ids += std::to_string(i16_at(entries + at));
            for (const std::uint32_t weights : {at + 2, at + 8, at + 14}) {
                const int sum =
                    i16_at(entries + weights) + i16_at(entries + weights + 2) + i16_at(entries + weights + 4);
                EXPECT_TRUE(sum >= 4092 && sum <= 4099) << row.firmware_file << " sums to " << sum;
            }
        }
        EXPECT_TRUE(ids == "125" || ids == "1245" || ids == "1235" || ids == "12345")
            << row.firmware_file << ": " << ids;
    }
}

TEST(CameraTable, LookupsTakeTheFirstRowThatFits) {
    const camera_id* const first = tz_camera_find(0x0214, kAnyRelease);
    ASSERT_NE(first, nullptr);
    for (const std::uint16_t release : std::initializer_list<std::uint16_t>{0, 1, 2})
        EXPECT_EQ(tz_camera_find(0x0214, release), first + release);
    EXPECT_EQ(tz_camera_find(0x0214, 3), nullptr);
    EXPECT_EQ(tz_camera_find(0x8214, 2), first + 2) << "bit 15 does not count";
    EXPECT_EQ(tz_camera_find(0x8613, 0)->vendor_id, 0x04B4) << "a bare FX2 finds its row";
    EXPECT_EQ(tz_camera_find(0x7FFF, kAnyRelease), nullptr);
    // Two of the three releases share their firmware file.
    EXPECT_STREQ(first[0].firmware_file, first[1].firmware_file);
    EXPECT_STRNE(first[0].firmware_file, first[2].firmware_file);
}

TEST(CameraTable, ModelDataThatLiesIsNotBelieved) {
    const auto put = [](std::vector<std::uint8_t>& block, std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            block.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    };
    const auto find = [](const std::vector<std::uint8_t>& block, std::uint32_t tag, std::uint32_t* length) {
        camera_id row{};
        row.model_data = block.data();
        row.model_data_size = static_cast<std::uint32_t>(block.size());
        const void* value = nullptr;
        return find_model_data(&row, tag, &value, length);
    };
    std::uint32_t length = 0;
    std::vector<std::uint8_t> block;
    EXPECT_EQ(find(block, 1, &length), TOVIX_EMODEL) << "empty";
    put(block, 7);
    EXPECT_EQ(find(block, 7, &length), TOVIX_EMODEL) << "cut off in a record's head";
    put(block, 4);
    EXPECT_EQ(find(block, 7, &length), TOVIX_EMODEL) << "claims more bytes than remain";
    put(block, 0xABCD);
    EXPECT_EQ(find(block, 7, &length), 0) << "a last record needs no end mark";
    EXPECT_EQ(length, 4u);
    put(block, 1), put(block, 0xFFFFFFFF), put(block, 0);
    EXPECT_EQ(find(block, 1, &length), TOVIX_EMODEL) << "a length that wraps";
    EXPECT_EQ(find(block, 7, &length), 0) << "what stands before it is found";

    const void* value = nullptr;
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(find_model_data(nullptr, 1, &value, &length), TOVIX_EINVAL); }),
              "error: device info cannot be NULL\n");
}

TEST(CameraTable, PathsAreFormattedAndCut) {
    ASSERT_TRUE(set_resource_root("/res"));
    EXPECT_STREQ(resource_path("m/firm%X.HEX", 0x1A).text, "/res/m/firm1A.HEX");
    EXPECT_STREQ(resource_path("m/fpga10.rbf", 3).text, "/res/m/fpga10.rbf");
    EXPECT_EQ(std::strlen(resource_path(std::string(300, 'n').c_str(), 0).text), 5u + 127u);
    ASSERT_TRUE(set_resource_root(("/" + std::string(300, 'r')).c_str()));
    EXPECT_EQ(std::strlen(resource_path("x", 0).text), 255u);
    ASSERT_TRUE(set_resource_root(nullptr));
    EXPECT_STREQ(RESOURCE_FILE_ROOT, "/Library/Frameworks/TovixSDK.framework/Resources/files");
}

}  // namespace
