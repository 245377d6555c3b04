// SPDX-License-Identifier: Apache-2.0
// Intel HEX: any file.
#include "hex_file.h"

#include "target.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ScratchFile file;
    file.set({data, size});
    const Block bytes(kMaxRecordBytes);
    usb_firmware_header header{};
    std::size_t used = 0;
    std::int32_t length = 0;
    while ((length = hex_read_section(file.fd(), &header, bytes.data())) > 0) {
        require(length == header.length, "the result is the record's length");
        used += 11 + 2 * std::size_t{header.length};  // characters: mark, length, address, type, data, checksum
    }
    require(used <= size, "records do not take more than there is");
    return 0;
}
