// SPDX-License-Identifier: Apache-2.0
#include "camera_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
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
    int any_release = 0, subsampling = 0, without_fpga = 0, fx2_vendor = 0;
    std::set<std::uint16_t> vendors;
    std::set<const void*> blocks;
    std::map<std::uint16_t, std::set<std::uint16_t>> vendors_of_product;
    for (const camera_id& row : rows()) {
        any_release += row.release == kAnyRelease;
        subsampling += row.subsampling;
        without_fpga += row.fpga_file == nullptr;
        fx2_vendor += row.vendor_id == 0x04B4;
        vendors.insert(row.vendor_id);
        blocks.insert(row.model_data);
        vendors_of_product[row.product_id].insert(row.vendor_id);
        EXPECT_LT(row.product_id, 0x8000);
        EXPECT_NE(std::strchr(row.firmware_file, '/'), nullptr);
    }
    EXPECT_EQ(any_release, 30);
    EXPECT_EQ(subsampling, 5);
    EXPECT_EQ(without_fpga, 1);
    EXPECT_EQ(fx2_vendor, 1);
    EXPECT_EQ(vendors.size(), 3u);
    EXPECT_EQ(blocks.size(), 26u);
    for (const auto& [product, of] : vendors_of_product)
        EXPECT_EQ(of.size(), 1u) << std::hex << product;
    // Rows of one (vendor, product) pair stand together, or start-up would search the pair twice.
    std::set<std::uint16_t> closed;
    for (std::size_t i = 1; i < rows().size(); ++i) {
        if (rows()[i].product_id == rows()[i - 1].product_id) continue;
        closed.insert(rows()[i - 1].product_id);
        EXPECT_FALSE(closed.contains(rows()[i].product_id)) << "row " << i;
    }
}

TEST(CameraTable, MatricesKeepGrey) {
    const std::set<std::vector<int>> id_sets{{1, 2, 5}, {1, 2, 4, 5}, {1, 2, 3, 5}, {1, 2, 3, 4, 5}};
    int without_matrices = 0;
    for (const camera_id& row : rows()) {
        const void* value = nullptr;
        std::uint32_t length = 0;
        if (find_model_data(&row, kMatrixTag, &value, &length) == TOVIX_EMODEL) {
            ++without_matrices;
            continue;
        }
        ASSERT_EQ(length % 20, 0u);
        std::vector<int> ids;
        const auto* const entries = static_cast<const std::uint8_t*>(value);
        for (std::uint32_t entry = 0; entry < length; entry += 20) {
            ids.push_back(i16_at(entries + entry));
            for (int group = 0; group < 3; ++group) {
                int sum = 0;
                for (int i = 0; i < 3; ++i)
                    sum += i16_at(entries + entry + 2 + 6 * group + 2 * i);
                EXPECT_TRUE(sum >= 4092 && sum <= 4099) << row.firmware_file << " sums to " << sum;
            }
        }
        EXPECT_TRUE(id_sets.contains(ids)) << row.firmware_file;
    }
    EXPECT_EQ(without_matrices, 1);
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
        const camera_id row{.product_id = 0,
                            .vendor_id = 0,
                            .release = 0,
                            .subsampling = 0,
                            .firmware_file = "",
                            .fpga_file = "",
                            .model_data = block.data(),
                            .model_data_size = static_cast<std::uint32_t>(block.size())};
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
