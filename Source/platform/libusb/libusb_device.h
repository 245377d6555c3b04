// SPDX-License-Identifier: Apache-2.0
// A device on a real bus.
//
// Opening a device claims every interface of its configuration, and closing it gives them back: libusb's own
// open is shared with everyone. Opening an interface then only says who uses its pipes.
#pragma once

#include <libusb.h>

#include <memory>
#include <mutex>
#include <vector>

#include "../backend.h"
#include "libusb_context.h"
#include "transfers.h"

namespace tovix::platform {

class LibusbDevice final : public HostDevice {
  public:
    /// Keeps a reference of `device`, which belongs to `context`.
    LibusbDevice(std::shared_ptr<LibusbContext> context, libusb_device* device,
                 const libusb_device_descriptor& descriptor);
    ~LibusbDevice() override;

    const DeviceIdentity& identity() const override { return identity_; }

    IOReturn open() override;
    void close() override;
    IOReturn configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) override;
    IOReturn set_configuration(UInt8 value) override;
    IOReturn interfaces(std::vector<UInt8>& numbers) override;
    IOReturn control(IOUSBDevRequestTO& request) override;

    IOReturn claim(UInt8 interface_number) override;
    void release(UInt8 interface_number) override;
    IOReturn set_alternate(UInt8 interface_number, UInt8 setting) override;
    IOReturn pipe_status(UInt8 interface_number, UInt8 pipe) override;
    IOReturn read_pipe(UInt8 interface_number, UInt8 pipe, void* data, UInt32& size, UInt32 no_data_ms) override;
    IOReturn write_pipe(UInt8 interface_number, UInt8 pipe, const void* data, UInt32 size, UInt32 no_data_ms) override;
    IOReturn clear_stall(UInt8 interface_number, UInt8 pipe) override;
    IOReturn abort_pipe(UInt8 interface_number, UInt8 pipe) override;
    IOReturn read_async(UInt8 interface_number, UInt8 pipe, AsyncRead& read) override;

  private:
    enum class Direction : UInt8 { kEither, kToHost, kToDevice };

    struct Interface {
        UInt8 number = 0;
        bool in_use = false;
        std::vector<Endpoint> pipes;  // of the current alternate setting; pipe n is element n - 1
    };

    struct Unreference {
        void operator()(libusb_device* device) const { libusb_unref_device(device); }
    };
    struct CloseHandle {
        void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
    };
    using Handle = std::unique_ptr<libusb_device_handle, CloseHandle>;

    [[nodiscard]] IOReturn claim_all(libusb_device_handle* handle);
    void release_all();
    [[nodiscard]] bool device_is_gone(UInt8 interface_number);
    [[nodiscard]] int choose_alternate(UInt8 interface_number, UInt8 setting);
    [[nodiscard]] IOReturn find_pipe(UInt8 interface_number, UInt8 pipe, Direction direction, Endpoint& found);
    Interface* find_interface(UInt8 number);  // with the mutex held; null when it is not there

    const std::shared_ptr<LibusbContext> context_;  // outlives everything below
    const std::unique_ptr<libusb_device, Unreference> device_;
    const DeviceIdentity identity_;
    Handle handle_;               // null: not open
    bool handle_spoilt_ = false;  // must not be closed: see choose_alternate()
    Transfers transfers_;

    std::mutex mutex_;  // guards the table, which transfers read while another thread uses another pipe
    std::vector<Interface> interfaces_;
};

}  // namespace tovix::platform
