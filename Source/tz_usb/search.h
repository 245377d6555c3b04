// SPDX-License-Identifier: Apache-2.0
// The search of the device registry that start-up, enumeration and open share.
#pragma once

#include <utility>

#include "camera_table.h"
#include "device.h"

/// Set by the first tovix_init, whether or not it succeeds: a failed start-up is not repeated. Changed
/// without a lock, since applications call tovix_init from one thread before anything else.
extern std::uint32_t usb_init;

/// The port through which the registry is searched, held for the time of a search.
class RegistryPort {
  public:
    RegistryPort() = default;
    ~RegistryPort() {
        if (port_ != MACH_PORT_NULL) mach_port_deallocate(mach_task_self(), port_);
    }
    RegistryPort(const RegistryPort&) = delete;
    RegistryPort& operator=(const RegistryPort&) = delete;

    /// False, after a report, when the registry cannot be reached.
    [[nodiscard]] bool open();
    mach_port_t get() const { return port_; }

  private:
    mach_port_t port_ = MACH_PORT_NULL;
};

/// What is done with the devices of a search; walks the iterator and releases each entry.
template <class Context>
using DeviceRoutine = void (*)(Context* context, io_iterator_t iterator);

/// In place of a product ID: devices of the vendor that have no firmware yet.
constexpr std::uint16_t kWithoutFirmware = 255;

/// Find the devices of a vendor. 0 with an iterator; -1 or -3 after a report.
[[nodiscard]] std::int32_t usb_find_devices(mach_port_t port, std::uint16_t vendor_id, std::uint16_t product_id,
                                            io_iterator_t* iterator);

/// Hand the matching devices to `routine`, once. 0 when it ran; -1 when no matching dictionary could be made;
/// -3 when the search failed.
template <class Context>
[[nodiscard]] std::int32_t usb_init_cameras_by_vid_and_pid(mach_port_t port, std::uint16_t vendor_id,
                                                           std::uint16_t product_id, DeviceRoutine<Context> routine,
                                                           Context* context) {
    io_iterator_t found = 0;
    if (const std::int32_t result = usb_find_devices(port, vendor_id, product_id, &found); result < 0) return result;
    const OwnedEntry iterator(found);
    routine(context, iterator.get());
    return TOVIX_OK;
}

/// Call `search(row)` for each (vendor, product) pair of the camera table once, until one returns a negative
/// value, which is returned; else 0. Rows of the same pair stand together in the table.
[[nodiscard]] std::int32_t for_each_pair(const auto& search) {
    std::pair<std::uint16_t, std::uint16_t> searched{0, 0};
    for (std::int32_t i = 0; i < camera_id_count; ++i) {
        const camera_id& row = camera_ids[i];
        const std::pair pair{row.vendor_id, row.product_id};
        if (pair == searched) continue;
        searched = pair;
        if (const std::int32_t result = search(row); result < 0) return result;
    }
    return TOVIX_OK;
}
