// SPDX-License-Identifier: Apache-2.0
// Ports, matching dictionaries, iterators and entries: the search for devices.
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <optional>

#include "objects.h"

struct CFNumber : private tovix::platform::Counted {
    SInt32 value = 0;
};

struct CFDictionary : private tovix::platform::Counted {
    std::optional<SInt32> vendor_id, product_id, device_subclass;
    bool unknown_key = false;  // a key that no device has: nothing matches
};

namespace tovix::platform {

namespace {

struct Port : Counted {};

using Object = std::variant<std::shared_ptr<Port>, std::shared_ptr<Service>, std::shared_ptr<Iterator>>;

/// Ids of the objects that are in the hands of callers. Ids are not used again until the numbers run out, so that a
/// stale one is found out.
class Registry {
  public:
    io_object_t add(Object object) {
        const std::lock_guard lock(mutex_);
        do {
            ++last_id_;
        } while (last_id_ == 0 || objects_.contains(last_id_));
        objects_.emplace(last_id_, std::move(object));
        return last_id_;
    }

    template <class Kind>
    std::shared_ptr<Kind> find(io_object_t id) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(id);
        if (found == objects_.end()) return nullptr;
        const auto* const object = std::get_if<std::shared_ptr<Kind>>(&found->second);
        return object != nullptr ? *object : nullptr;
    }

    bool remove(io_object_t id) {
        Object removed;  // freed after the lock is
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(id);
        if (found == objects_.end()) return false;
        removed = std::move(found->second);
        objects_.erase(found);
        return true;
    }

  private:
    std::mutex mutex_;
    std::map<io_object_t, Object> objects_;  // guarded by mutex_
    io_object_t last_id_ = 0;                // guarded by mutex_
};

Registry& registry() {
    static Registry the_registry;
    return the_registry;
}

bool matches(const DeviceIdentity& identity, const CFDictionary& wanted) {
    const auto equal = [](const std::optional<SInt32>& number, SInt32 value) { return !number || *number == value; };
    return !wanted.unknown_key && equal(wanted.vendor_id, identity.vendor_id) &&
           equal(wanted.product_id, identity.product_id) && equal(wanted.device_subclass, identity.subclass);
}

}  // namespace

io_iterator_t register_iterator(std::unique_ptr<Iterator> iterator) {
    return registry().add(std::shared_ptr<Iterator>(std::move(iterator)));
}

std::shared_ptr<Service> find_service(io_service_t id) {
    return registry().find<Service>(id);
}

}  // namespace tovix::platform

using namespace tovix::platform;

IOReturn IOMasterPort(mach_port_t, mach_port_t* port) noexcept {
    return perform(Operation::kIOMasterPort, [&] {
        *port = registry().add(std::make_shared<Port>());
        return kIOReturnSuccess;
    });
}

mach_port_t mach_task_self() noexcept {
    return 1;
}

IOReturn mach_port_deallocate(mach_port_t, mach_port_t port) noexcept {
    return IOObjectRelease(port);
}

CFMutableDictionaryRef IOServiceMatching(const char* class_name) noexcept {
    CFMutableDictionaryRef dictionary = nullptr;
    perform(Operation::kIOServiceMatching, [&] {
        if (std::strcmp(class_name, "IOUSBDevice") != 0) return kIOReturnUnsupported;
        dictionary = new CFDictionary;
        return kIOReturnSuccess;
    });
    return dictionary;
}

CFNumberRef CFNumberCreate(const void*, CFNumberType, const void* value) noexcept {
    CFNumberRef number = nullptr;
    perform(Operation::kCFNumberCreate, [&] {
        number = new CFNumber;
        std::memcpy(&number->value, value, sizeof number->value);
        return kIOReturnSuccess;
    });
    return number;
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const char* key, CFNumberRef number) noexcept {
    if (std::strcmp(key, "idVendor") == 0) {
        dictionary->vendor_id = number->value;
    } else if (std::strcmp(key, "idProduct") == 0) {
        dictionary->product_id = number->value;
    } else if (std::strcmp(key, "bDeviceSubClass") == 0) {
        dictionary->device_subclass = number->value;
    } else {
        dictionary->unknown_key = true;
    }
}

void CFRelease(CFNumberRef number) noexcept {
    delete number;
}

void CFRelease(CFMutableDictionaryRef dictionary) noexcept {
    delete dictionary;
}

IOReturn IOServiceGetMatchingServices(mach_port_t port, CFMutableDictionaryRef matching,
                                      io_iterator_t* iterator) noexcept {
    const std::unique_ptr<CFDictionary> wanted(matching);
    return perform(Operation::kIOServiceGetMatchingServices, [&] {
        const std::shared_ptr<Port> searched = registry().find<Port>(port);
        if (!searched || !wanted) return kIOReturnBadArgument;
        std::vector<std::shared_ptr<HostDevice>> devices;
        if (const IOReturn status = backend().devices(devices); status != kIOReturnSuccess) return status;
        auto found = std::make_unique<Iterator>();
        for (const auto& device : devices) {
            if (matches(device->identity(), *wanted)) found->entries.push_back(std::make_shared<Service>(device, -1));
        }
        *iterator = register_iterator(std::move(found));
        return kIOReturnSuccess;
    });
}

io_object_t IOIteratorNext(io_iterator_t id) noexcept try {
    const std::shared_ptr<Iterator> iterator = registry().find<Iterator>(id);
    if (!iterator || iterator->next == iterator->entries.size()) return 0;
    const io_object_t entry = registry().add(iterator->entries[iterator->next]);
    iterator->entries[iterator->next++].reset();
    return entry;
} catch (const std::bad_alloc&) {
    return 0;
}

IOReturn IOObjectRelease(io_object_t object) noexcept {
    return registry().remove(object) ? kIOReturnSuccess : kIOReturnBadArgument;
}
