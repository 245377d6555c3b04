// SPDX-License-Identifier: Apache-2.0
// The host's side of a simulated device: claims, pipes, time-outs and pending reads, as the platform seam wants them.
#pragma once

#include <memory>
#include <optional>

#include "bus.h"
#include "platform.h"

namespace tovix::simulator {

class SimulatedHostDevice final : public platform::HostDevice {
  public:
    /// The device that is in the port now; what comes to the port later is another device. Null when there is none, or
    /// one that does not say what it is, which no host shows to anybody.
    static std::shared_ptr<SimulatedHostDevice> in(const std::shared_ptr<Port>& port);

    const platform::DeviceIdentity& identity() const override { return identity_; }
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
    IOReturn read_async(UInt8 interface_number, UInt8 pipe, platform::AsyncRead& read) override;

  private:
    explicit SimulatedHostDevice(std::shared_ptr<Port> port) : port_(std::move(port)) {}
    IOReturn identify();
    bool gone(const Device& device) const { return !device.attached() || device.generation() != generation_; }
    /// A control transfer. Its data is at `data`; *length_done receives the bytes that moved.
    IOReturn transfer(const Setup& setup, void* data, UInt32 timeout_ms, UInt32* length_done);
    /// What a planted fault makes of an operation that is the host's alone; nothing when there is none.
    std::optional<IOReturn> struck(Place place, const Port::Access& device);
    void abort_reads();
    void wait_in_vain(UInt32 timeout_ms);

    std::shared_ptr<Port> port_;
    std::uint32_t generation_ = 0;
    platform::DeviceIdentity identity_;
};

/// An asynchronous read of a port.
class HostRead final : public BulkRead {
  public:
    HostRead(std::list<std::unique_ptr<HostRead>>& pending, platform::AsyncRead& target);
    void finished(Outcome outcome, std::uint32_t bytes) override;
    void abort();

  private:
    void complete(IOReturn status, std::uint32_t bytes);

    std::list<std::unique_ptr<HostRead>>& pending_;
    platform::AsyncRead& target_;
};

}  // namespace tovix::simulator
