// SPDX-License-Identifier: Apache-2.0
#include "transfers.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "../backend.h"
#include "../platform.h"
#include "libusb_status.h"

namespace tovix::platform {
namespace {

// libusb has one time limit for a whole transfer. Long synchronous transfers go in chunks, each with the
// caller's limit, so that a long transfer fails only when its data stop.
constexpr UInt32 kChunkBytes = 256 * 1024;

constexpr UInt32 kMaxControlBytes = 4096;  // libusb's limit

constexpr Endpoint kDefaultPipe{.address = 0, .type = LIBUSB_TRANSFER_TYPE_CONTROL, .packet_bytes = 64};

struct FreeTransfer {
    void operator()(libusb_transfer* transfer) const { libusb_free_transfer(transfer); }
};

struct Moved {
    IOReturn status;
    UInt32 bytes;  // whatever the status
};

Moved result_of(const libusb_transfer& transfer) {
    return {status_of_transfer(transfer.status), static_cast<UInt32>(transfer.actual_length)};
}

}  // namespace

/// One request of the layer above. Its libusb transfer is submitted once or, for chunks, several times.
struct Transfers::Request {
    Request(Transfers& its_owner, const Endpoint& its_endpoint)
        : owner(its_owner), endpoint(set_of(its_endpoint)), transfer(libusb_alloc_transfer(0)) {
        if (transfer == nullptr) throw std::bad_alloc();
        transfer->endpoint = its_endpoint.address;
        transfer->type = its_endpoint.type;
        transfer->callback = &Transfers::on_end;
        transfer->user_data = this;
    }

    Transfers& owner;
    const EndpointSet endpoint;
    const std::unique_ptr<libusb_transfer, FreeTransfer> transfer;
    AsyncRead* read = nullptr;  // null: the caller waits for it
    bool in_flight = false;
    bool cancelled = false;
};

/// A request whose caller waits, listed from construction to destruction.
class Transfers::SyncRequest {
  public:
    SyncRequest(Transfers& owner, const Endpoint& endpoint)
        : owner_(owner), lock_(owner.mutex_), request_(owner.accept(endpoint)) {}
    ~SyncRequest() { owner_.forget(request_); }
    SyncRequest(const SyncRequest&) = delete;
    SyncRequest& operator=(const SyncRequest&) = delete;

    /// Move up to `length` bytes and wait for their end. 0 ms: without a limit.
    Moved move(UInt8* data, UInt32 length, UInt32 limit_ms) {
        libusb_transfer& transfer = *request_.transfer;
        transfer.buffer = data;
        transfer.length = static_cast<int>(length);
        transfer.timeout = limit_ms;
        if (const IOReturn status = owner_.submit(request_); status != 0) return {status, 0};
        owner_.ended_.wait(lock_, [this] { return !request_.in_flight; });
        return result_of(transfer);
    }

    /// As move(), for data. The host times out by cancelling, which may come too late to stop any of them.
    Moved move_data(UInt8* data, UInt32 length, UInt32 limit_ms) {
        const Moved moved = move(data, length, limit_ms);
        const bool all_in_time = moved.status == kIOUSBTransactionTimeout && moved.bytes == length;
        return {all_in_time ? kIOReturnSuccess : moved.status, moved.bytes};
    }

  private:
    Transfers& owner_;
    std::unique_lock<std::mutex> lock_;  // held but for the wait
    Request& request_;
};

Transfers::Transfers() = default;
Transfers::~Transfers() = default;

void Transfers::open(libusb_device_handle* handle) {
    const std::lock_guard lock(mutex_);
    handle_ = handle;
    halted_ = 0;
}

void Transfers::close() {
    {
        const std::lock_guard lock(mutex_);
        handle_ = nullptr;
    }
    drain(kEveryEndpoint);
}

IOReturn Transfers::control(IOUSBDevRequestTO& request) {
    request.wLenDone = 0;
    if (request.wLength > kMaxControlBytes) return kIOReturnBadArgument;
    const bool to_host = (request.bmRequestType & LIBUSB_ENDPOINT_IN) != 0;

    std::vector<UInt8> message(LIBUSB_CONTROL_SETUP_SIZE + request.wLength);
    UInt8* const data = message.data() + LIBUSB_CONTROL_SETUP_SIZE;
    libusb_fill_control_setup(message.data(), request.bmRequestType, request.bRequest, request.wValue, request.wIndex,
                              request.wLength);
    if (!to_host && request.wLength > 0) std::memcpy(data, request.pData, request.wLength);

    UInt32 limit_ms = request.noDataTimeout;
    if (request.completionTimeout != 0 && (limit_ms == 0 || request.completionTimeout < limit_ms))
        limit_ms = request.completionTimeout;
    const Moved moved =
        SyncRequest(*this, kDefaultPipe).move(message.data(), static_cast<UInt32>(message.size()), limit_ms);

    request.wLenDone = std::min<UInt32>(moved.bytes, request.wLength);
    if (to_host && request.wLenDone > 0) std::memcpy(request.pData, data, request.wLenDone);
    return moved.status;
}

// The device may end with a packet larger than the room that is left for it. The host would drop such a
// packet whole, so a last packet that the caller has less than full room for is received aside.
IOReturn Transfers::read(const Endpoint& endpoint, void* data, UInt32& size, UInt32 no_data_ms) {
    const UInt32 capacity = size, packet_bytes = endpoint.packet_bytes;
    size = 0;
    UInt8* const bytes = static_cast<UInt8*>(data);
    std::vector<UInt8> last_packet(capacity % packet_bytes != 0 ? packet_bytes : 0);
    SyncRequest request(*this, endpoint);
    while (size < capacity) {
        const UInt32 room = capacity - size;
        const UInt32 chunk = std::min(room, kChunkBytes) / packet_bytes * packet_bytes;
        if (chunk == 0) {
            const Moved moved = request.move_data(last_packet.data(), packet_bytes, no_data_ms);
            const UInt32 fitting = std::min(moved.bytes, room);
            std::copy_n(last_packet.data(), fitting, bytes + size);
            size += fitting;
            return moved.status == 0 && moved.bytes > room ? kIOReturnOverrun : moved.status;
        }
        const Moved moved = request.move_data(bytes + size, chunk, no_data_ms);
        size += moved.bytes;
        if (moved.status != 0 || moved.bytes < chunk) return moved.status;
    }
    return kIOReturnSuccess;
}

IOReturn Transfers::write(const Endpoint& endpoint, const void* data, UInt32 size, UInt32 no_data_ms) {
    UInt8* const bytes = static_cast<UInt8*>(const_cast<void*>(data));  // libusb only reads it
    const UInt32 whole_packets = kChunkBytes / endpoint.packet_bytes * endpoint.packet_bytes;
    SyncRequest request(*this, endpoint);
    for (UInt32 sent = 0; sent < size;) {
        const UInt32 chunk = std::min(size - sent, whole_packets);
        const Moved moved = request.move_data(bytes + sent, chunk, no_data_ms);
        sent += moved.bytes;
        if (moved.status != 0) return moved.status;
        if (moved.bytes < chunk) return kIOReturnUnderrun;
    }
    return kIOReturnSuccess;
}

// One transfer whatever the size: the kernel takes it as one request where the host controller can, and else
// libusb splits it so that a short packet still ends the whole. Where `size` is not a multiple of the packet
// size, the device's own last packet is short and fits; a device that sends more ends the read as an overrun.
IOReturn Transfers::read_async(const Endpoint& endpoint, AsyncRead& read) {
    if (read.size > INT_MAX) return kIOReturnBadArgument;
    const std::lock_guard lock(mutex_);
    Request& request = accept(endpoint);
    request.read = &read;
    request.transfer->buffer = read.data;
    request.transfer->length = static_cast<int>(read.size);
    const IOReturn status = submit(request);
    if (status != 0) forget(request);
    return status;
}

void Transfers::cancel(EndpointSet endpoints) {
    const std::lock_guard lock(mutex_);
    mark_cancelled(endpoints);
}

void Transfers::drain(EndpointSet endpoints) {
    std::unique_lock lock(mutex_);
    mark_cancelled(endpoints);
    ended_.wait(lock, [&] {  // only for those: a caller that tries again at once must not keep us here
        return std::none_of(requests_.begin(), requests_.end(), [&](const Request& request) {
            return request.cancelled && (request.endpoint & endpoints) != 0;
        });
    });
}

bool Transfers::halted(EndpointSet endpoint) {
    const std::lock_guard lock(mutex_);
    return (halted_ & endpoint) != 0;
}

void Transfers::clear_halted(EndpointSet endpoints) {
    const std::lock_guard lock(mutex_);
    halted_ &= ~endpoints;
}

void LIBUSB_CALL Transfers::on_end(libusb_transfer* transfer) noexcept {
    Request& request = *static_cast<Request*>(transfer->user_data);
    Transfers& self = request.owner;
    std::unique_lock lock(self.mutex_);
    if (transfer->status == LIBUSB_TRANSFER_STALL && transfer->type != LIBUSB_TRANSFER_TYPE_CONTROL)
        self.halted_ |= request.endpoint;
    if (request.read == nullptr) {
        request.in_flight = false;
        self.ended_.notify_all();
        return;
    }
    const Moved moved = result_of(*transfer);
    lock.unlock();  // the completion takes locks under which others call us
    request.read->complete(moved.status, moved.bytes);
    lock.lock();
    self.forget(request);
}

Transfers::Request& Transfers::accept(const Endpoint& endpoint) {
    return requests_.emplace_back(*this, endpoint);
}

void Transfers::forget(const Request& request) {
    requests_.remove_if([&](const Request& each) { return &each == &request; });
    ended_.notify_all();
}

// Under the mutex to the end: between a submission and its mark, a cancellation would be lost.
IOReturn Transfers::submit(Request& request) {
    if (handle_ == nullptr) return kIOReturnNotOpen;
    if (request.cancelled) return kIOReturnAborted;
    if ((halted_ & request.endpoint) != 0) return kIOUSBPipeStalled;
    request.transfer->dev_handle = handle_;
    const int error = libusb_submit_transfer(request.transfer.get());
    request.in_flight = error == 0;
    return status_of_error(error);
}

void Transfers::mark_cancelled(EndpointSet endpoints) {
    for (Request& request : requests_) {
        if ((request.endpoint & endpoints) == 0) continue;
        request.cancelled = true;
        // Refused for a transfer that is already on its way to its callback, which is as good.
        if (request.in_flight) static_cast<void>(libusb_cancel_transfer(request.transfer.get()));
    }
}

}  // namespace tovix::platform
