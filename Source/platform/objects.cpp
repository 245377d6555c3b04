// SPDX-License-Identifier: Apache-2.0
// Plug-ins, devices and interfaces in the platform's shape: an object starts with the pointer to its table of
// operations, and callers pass the address of that pointer as `self`.
#include "objects.h"

#include <cstddef>
#include <type_traits>

namespace tovix::platform {

namespace {

/// What the three kinds of object share. Callers hold a pointer to the table pointer, which is where an object begins.
template <class TableType>
struct Object : Counted {
    using Table = TableType;
    explicit Object(const Table& table_) : table(&table_) {}

    const Table* table;
    std::atomic<UInt32> references{1};
};

/// The caller's view of an object.
template <class Table>
void* as_self(Object<Table>* object) {
    static_assert(std::is_standard_layout_v<Object<Table>> && offsetof(Object<Table>, table) == 0);
    return object;
}

template <class Kind>
Kind& from_self(void* self) {
    return static_cast<Kind&>(*static_cast<Object<typename Kind::Table>*>(self));
}

template <class Kind>
UInt32 release(void* self) {
    Kind& object = from_self<Kind>(self);
    const UInt32 left = --object.references;
    if (left == 0) delete &object;
    return left;
}

// ---------------------------------------------------------------------------------------------------------------

extern const IOUSBInterfaceInterface kInterfaceTable;

struct InterfaceObject : Object<IOUSBInterfaceInterface> {
    explicit InterfaceObject(const Service& service)
        : Object(kInterfaceTable), device(service.device), number(static_cast<UInt8>(service.interface_number)) {}
    ~InterfaceObject() {
        if (claimed) device->release(number);
    }

    /// Run an operation that needs the interface claimed.
    template <class Body>
    static IOReturn perform_claimed(void* self, Operation operation, const Body& body) noexcept {
        return perform(operation, [&] {
            auto& object = from_self<InterfaceObject>(self);
            return object.claimed ? body(object) : kIOReturnNotOpen;
        });
    }

    static IOReturn open(void* self) {
        return perform(Operation::kUSBInterfaceOpen, [&] {
            auto& object = from_self<InterfaceObject>(self);
            const IOReturn status = object.device->claim(object.number);
            object.claimed = status == kIOReturnSuccess;
            return status;
        });
    }
    static IOReturn close(void* self) {
        return perform_claimed(self, Operation::kUSBInterfaceClose, [](InterfaceObject& object) {
            object.device->release(object.number);
            object.claimed = false;
            return kIOReturnSuccess;
        });
    }
    static IOReturn set_alternate(void* self, UInt8 setting) {
        return perform_claimed(self, Operation::kSetAlternateInterface, [&](InterfaceObject& object) {
            return object.device->set_alternate(object.number, setting);
        });
    }
    static IOReturn control(void* self, UInt8 pipe, IOUSBDevRequestTO* request) {
        return perform_claimed(self, Operation::kControlRequestTO, [&](InterfaceObject& object) {
            return pipe == 0 ? object.device->control(*request) : kIOUSBUnknownPipeErr;
        });
    }
    static IOReturn pipe_status(void* self, UInt8 pipe) {
        return perform_claimed(self, Operation::kGetPipeStatus, [&](InterfaceObject& object) {
            return object.device->pipe_status(object.number, pipe);
        });
    }
    static IOReturn read(void* self, UInt8 pipe, void* data, UInt32* size, UInt32 no_data_ms, UInt32) {
        UInt32 capacity = *size;
        *size = 0;  // nothing has arrived when the operation does not even begin
        return perform_claimed(self, Operation::kReadPipeTO, [&](InterfaceObject& object) {
            const IOReturn status = object.device->read_pipe(object.number, pipe, data, capacity, no_data_ms);
            *size = capacity;
            return status;
        });
    }
    static IOReturn write(void* self, UInt8 pipe, const void* data, UInt32 size, UInt32 no_data_ms, UInt32) {
        return perform_claimed(self, Operation::kWritePipeTO, [&](InterfaceObject& object) {
            return object.device->write_pipe(object.number, pipe, data, size, no_data_ms);
        });
    }
    static IOReturn clear_stall(void* self, UInt8 pipe) {
        return perform_claimed(self, Operation::kClearPipeStallBothEnds, [&](InterfaceObject& object) {
            return object.device->clear_stall(object.number, pipe);
        });
    }
    static IOReturn abort_pipe(void* self, UInt8 pipe) {
        return perform_claimed(self, Operation::kAbortPipe,
                               [&](InterfaceObject& object) { return object.device->abort_pipe(object.number, pipe); });
    }
    static IOReturn read_async(void* self, UInt8 pipe, void* data, UInt32 size, IOAsyncCallback1 callback,
                               void* refcon) {
        return perform_claimed(self, Operation::kReadPipeAsync, [&](InterfaceObject& object) {
            if (!object.queue) return kIOReturnNotOpen;  // no event source would deliver the completion
            auto pending = std::make_unique<QueuedRead>(object.queue, callback, refcon);
            pending->data = static_cast<UInt8*>(data);
            pending->size = size;
            // Once it is accepted the read may have completed, and be gone, before this call returns.
            QueuedRead* const accepted = pending.release();
            const IOReturn status = object.device->read_async(object.number, pipe, *accepted);
            if (status != kIOReturnSuccess) delete accepted;
            return status;
        });
    }
    static IOReturn create_event_source(void* self, CFRunLoopSourceRef* source) {
        return perform_claimed(self, Operation::kCreateInterfaceAsyncEventSource, [&](InterfaceObject& object) {
            auto created = std::make_unique<CFRunLoopSource>();
            object.queue = created->queue;
            *source = created.release();
            return kIOReturnSuccess;
        });
    }

    std::shared_ptr<HostDevice> device;
    UInt8 number;
    bool claimed = false;
    std::shared_ptr<CompletionQueue> queue;
};

const IOUSBInterfaceInterface kInterfaceTable = {
    .Release = release<InterfaceObject>,
    .USBInterfaceOpen = InterfaceObject::open,
    .USBInterfaceClose = InterfaceObject::close,
    .SetAlternateInterface = InterfaceObject::set_alternate,
    .ControlRequestTO = InterfaceObject::control,
    .GetPipeStatus = InterfaceObject::pipe_status,
    .ReadPipeTO = InterfaceObject::read,
    .WritePipeTO = InterfaceObject::write,
    .ClearPipeStallBothEnds = InterfaceObject::clear_stall,
    .AbortPipe = InterfaceObject::abort_pipe,
    .ReadPipeAsync = InterfaceObject::read_async,
    .CreateInterfaceAsyncEventSource = InterfaceObject::create_event_source,
};

// ---------------------------------------------------------------------------------------------------------------

extern const IOUSBDeviceInterface197 kDeviceTable;

struct DeviceObject : Object<IOUSBDeviceInterface197> {
    explicit DeviceObject(const Service& service) : Object(kDeviceTable), device(service.device) {}
    ~DeviceObject() {
        if (opened) device->close();
    }

    /// An identity call: one field of what the host knows.
    template <auto DeviceIdentity::*Field, Operation kOperation, class Value>
    static IOReturn identity(void* self, Value* value) {
        return perform(kOperation, [&] {
            *value = from_self<DeviceObject>(self).device->identity().*Field;
            return kIOReturnSuccess;
        });
    }

    /// Run an operation that needs the device open.
    template <class Body>
    static IOReturn perform_open(void* self, Operation operation, const Body& body) noexcept {
        return perform(operation, [&] {
            auto& object = from_self<DeviceObject>(self);
            return object.opened ? body(object) : kIOReturnNotOpen;
        });
    }

    static IOReturn open(void* self) {
        return perform(Operation::kUSBDeviceOpen, [&] {
            auto& object = from_self<DeviceObject>(self);
            const IOReturn status = object.device->open();
            object.opened = status == kIOReturnSuccess;
            return status;
        });
    }
    static IOReturn close(void* self) {
        return perform_open(self, Operation::kUSBDeviceClose, [](DeviceObject& object) {
            object.device->close();
            object.opened = false;
            return kIOReturnSuccess;
        });
    }
    static IOReturn configuration(void* self, UInt8 index, IOUSBConfigurationDescriptorPtr* descriptor) {
        return perform_open(self, Operation::kGetConfigurationDescriptorPtr, [&](DeviceObject& object) {
            const IOReturn status = object.device->configuration_descriptor(index, object.configuration_head);
            if (status == kIOReturnSuccess) *descriptor = &object.configuration_head;
            return status;
        });
    }
    static IOReturn set_configuration(void* self, UInt8 value) {
        return perform_open(self, Operation::kSetConfiguration,
                            [&](DeviceObject& object) { return object.device->set_configuration(value); });
    }
    static IOReturn interfaces(void* self, const IOUSBFindInterfaceRequest*, io_iterator_t* iterator) {
        return perform_open(self, Operation::kCreateInterfaceIterator, [&](DeviceObject& object) {
            std::vector<UInt8> numbers;
            if (const IOReturn status = object.device->interfaces(numbers); status != kIOReturnSuccess) return status;
            auto found = std::make_unique<Iterator>();
            for (const UInt8 number : numbers)
                found->entries.push_back(std::make_shared<Service>(object.device, number));
            *iterator = register_iterator(std::move(found));
            return kIOReturnSuccess;
        });
    }
    static IOReturn control(void* self, IOUSBDevRequestTO* request) {
        return perform_open(self, Operation::kDeviceRequestTO,
                            [&](DeviceObject& object) { return object.device->control(*request); });
    }

    std::shared_ptr<HostDevice> device;
    bool opened = false;
    IOUSBConfigurationDescriptor configuration_head{};
};

const IOUSBDeviceInterface197 kDeviceTable = {
    .Release = release<DeviceObject>,
    .GetDeviceVendor = DeviceObject::identity<&DeviceIdentity::vendor_id, Operation::kGetDeviceVendor>,
    .GetDeviceProduct = DeviceObject::identity<&DeviceIdentity::product_id, Operation::kGetDeviceProduct>,
    .GetDeviceReleaseNumber = DeviceObject::identity<&DeviceIdentity::release, Operation::kGetDeviceReleaseNumber>,
    .GetDeviceSpeed = DeviceObject::identity<&DeviceIdentity::speed, Operation::kGetDeviceSpeed>,
    .USBGetProductStringIndex =
        DeviceObject::identity<&DeviceIdentity::product_string_index, Operation::kUSBGetProductStringIndex>,
    .USBGetSerialNumberStringIndex =
        DeviceObject::identity<&DeviceIdentity::serial_string_index, Operation::kUSBGetSerialNumberStringIndex>,
    .USBDeviceOpen = DeviceObject::open,
    .USBDeviceClose = DeviceObject::close,
    .GetConfigurationDescriptorPtr = DeviceObject::configuration,
    .SetConfiguration = DeviceObject::set_configuration,
    .CreateInterfaceIterator = DeviceObject::interfaces,
    .DeviceRequestTO = DeviceObject::control,
};

// ---------------------------------------------------------------------------------------------------------------

extern const IOCFPlugInInterface kPlugInTable;

struct PlugInObject : Object<IOCFPlugInInterface> {
    explicit PlugInObject(std::shared_ptr<Service> service_) : Object(kPlugInTable), service(std::move(service_)) {}

    static IOReturn query(void* self, CFUUID id, void** object) {
        return perform(Operation::kQueryInterface, [&] {
            const Service& wanted = *from_self<PlugInObject>(self).service;
            const bool is_device = wanted.interface_number < 0;
            if (id == kIOUSBDeviceInterfaceID197 && is_device) {
                *object = as_self(new DeviceObject(wanted));
            } else if (id == kIOUSBInterfaceInterfaceID && !is_device) {
                *object = as_self(new InterfaceObject(wanted));
            } else {
                return kIOReturnUnsupported;
            }
            return kIOReturnSuccess;
        });
    }

    std::shared_ptr<Service> service;
};

const IOCFPlugInInterface kPlugInTable = {.QueryInterface = PlugInObject::query, .Release = release<PlugInObject>};

}  // namespace

}  // namespace tovix::platform

using namespace tovix::platform;

IOReturn IOCreatePlugInInterfaceForService(io_service_t service, CFUUID plug_in_type, CFUUID interface_type,
                                           IOCFPlugInInterface*** plug_in, SInt32* score) noexcept {
    return perform(Operation::kIOCreatePlugInInterfaceForService, [&] {
        std::shared_ptr<Service> entry = find_service(service);
        if (!entry || interface_type != kIOCFPlugInInterfaceID) return kIOReturnBadArgument;
        const CFUUID fitting =
            entry->interface_number < 0 ? kIOUSBDeviceUserClientTypeID : kIOUSBInterfaceUserClientTypeID;
        if (plug_in_type != fitting) return kIOReturnUnsupported;
        *plug_in = static_cast<IOCFPlugInInterface**>(as_self(new PlugInObject(std::move(entry))));
        *score = 0;
        return kIOReturnSuccess;
    });
}

long tz_platform_objects_alive() noexcept {
    return Counted::alive;
}
