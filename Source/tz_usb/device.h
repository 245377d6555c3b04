// SPDX-License-Identifier: Apache-2.0
// Opening a device of the registry into a camera record, and closing it.
#pragma once

#include <memory>
#include <utility>

#include "handle.h"

/// Gives back a platform object's reference.
struct ReleaseObject {
    void operator()(auto** object) const { (*object)->Release(object); }
};
template <class Table>
using Owned = std::unique_ptr<Table*, ReleaseObject>;

/// A registry entry, iterator or port, given back when it goes out of scope.
class OwnedEntry {
  public:
    explicit OwnedEntry(io_object_t id = 0) : id_(id) {}
    ~OwnedEntry() {
        if (id_ != 0) IOObjectRelease(id_);
    }
    OwnedEntry(const OwnedEntry&) = delete;
    OwnedEntry& operator=(const OwnedEntry&) = delete;
    io_object_t get() const { return id_; }
    io_object_t release() { return std::exchange(id_, 0); }
    explicit operator bool() const { return id_ != 0; }

  private:
    io_object_t id_;
};

/// Open the device at `service` into `camera`, whatever the record held: claim it, read identity, temperature
/// state and geometry, and tell it the colour code and the default data rate. Takes over the registry entry.
/// 0, or negative after a report; then everything is given back, the entry too, and the record is closed.
[[nodiscard]] std::int32_t usb_open_device(_tovix* camera, io_service_t service);

/// Open the interface at camera->interface_service. 0, or a platform status after a report.
[[nodiscard]] std::int32_t usb_open_interface(_tovix* camera);

/// Give back what an open acquired, its data-rate list too; safe at every stage of opening. Always 0.
std::int32_t usb_close_device(_tovix* camera);

/// Steps of the open. 0, or negative after a report.
std::int32_t usb_init_temperature(_tovix* camera);
[[nodiscard]] std::int32_t usb_init_geometry(_tovix* camera);

/// The first record of `tag` in the camera's model data. Results of find_model_data.
[[nodiscard]] std::int32_t usb_get_model_data(_tovix* camera, std::uint32_t tag, const void** value,
                                              std::uint32_t* length);
