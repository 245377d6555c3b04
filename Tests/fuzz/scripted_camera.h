// SPDX-License-Identifier: Apache-2.0
// A camera's handle whose control requests are answered by the input alone: nothing stands behind it.
#pragma once

#include "handle.h"
#include "target.h"

namespace tovix::fuzz {

class ScriptedCamera {
  public:
    explicit ScriptedCamera(Input& input) : input_(input) {
        device_table_.DeviceRequestTO = [](void* self, IOUSBDevRequestTO* request) {
            return static_cast<Object<IOUSBDeviceInterface197>*>(self)->camera->answer(*request);
        };
        device_table_.GetDeviceSpeed = [](void* self, UInt8* speed) {
            *speed = static_cast<Object<IOUSBDeviceInterface197>*>(self)->camera->input_.number<UInt8>();
            return kIOReturnSuccess;
        };
        device_table_.USBGetProductStringIndex = device_table_.GetDeviceSpeed;
        device_table_.USBGetSerialNumberStringIndex = device_table_.GetDeviceSpeed;
        interface_table_.ControlRequestTO = [](void* self, UInt8, IOUSBDevRequestTO* request) {
            return static_cast<Object<IOUSBInterfaceInterface>*>(self)->camera->answer(*request);
        };
        interface_table_.ClearPipeStallBothEnds = [](void*, UInt8) { return kIOReturnSuccess; };
        interface_table_.AbortPipe = interface_table_.ClearPipeStallBothEnds;
        handle.device = &device_.table;
        handle.interface = &interface_.table;
    }
    ScriptedCamera(const ScriptedCamera&) = delete;
    ScriptedCamera& operator=(const ScriptedCamera&) = delete;

    _tovix handle{};

  private:
    template <class Table>
    struct Object {  // callers hold the address of the table's pointer
        Table* table;
        ScriptedCamera* camera;
    };

    /// Any status, and as many bytes as the input has to spend; a transfer never brings more than was asked for.
    IOReturn answer(IOUSBDevRequestTO& request) {
        constexpr IOReturn kStatuses[] = {kIOReturnSuccess, kIOReturnSuccess, kIOReturnSuccess, kIOReturnOverrun,
                                          kIOUSBPipeStalled};
        const IOReturn status = input_.one_of(kStatuses);
        request.wLenDone = request.wLength;
        if ((request.bmRequestType & 0x80) == 0) return status;
        const auto bytes = input_.take(std::min<std::size_t>(input_.number<std::uint8_t>(), request.wLength));
        std::ranges::copy(bytes, static_cast<std::uint8_t*>(request.pData));
        request.wLenDone = input_.flag() ? static_cast<UInt32>(bytes.size()) : UInt32{request.wLength};
        return status;
    }

    Input& input_;
    IOUSBDeviceInterface197 device_table_{};
    IOUSBInterfaceInterface interface_table_{};
    Object<IOUSBDeviceInterface197> device_{&device_table_, this};
    Object<IOUSBInterfaceInterface> interface_{&interface_table_, this};
};

}  // namespace tovix::fuzz
