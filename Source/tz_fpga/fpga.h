// SPDX-License-Identifier: Apache-2.0
// FPGA configuration: the image file of a model, sent over bulk pipe 1 between two writes to the control register.
#pragma once

#include <cstdint>

#include "platform.h"

/// Configure the FPGA of each device of the iterator that has one and is not configured yet, and release its
/// entry. A device that fails is reported and left out. `context` is not used.
void usb_load_fpga(void* context, io_iterator_t iterator);

/// Read the FPGA image of a product into a new buffer that the caller frees with free(). 0; -1 after a
/// report, also for a file that is empty, not a regular file, or larger than any FPGA's.
[[nodiscard]] std::int32_t usb_load_fpga_contents(std::uint16_t vendor_id, std::uint16_t product_id,
                                                  std::uint16_t release, std::uint8_t** buffer, std::uint32_t* size);
