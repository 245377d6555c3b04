// SPDX-License-Identifier: Apache-2.0
// The transfers of one open device.
//
//   request --accepted--> pending --libusb's callback, on the event thread--> ended: AsyncRead::complete, or
//                            ^                                             |  the caller that waits goes on
//                            +------- next chunk of a long transfer -------+
//
// libusb's own synchronous calls are never used: they handle events on the calling thread, so that
// completions of other transfers would run there. A synchronous transfer is an asynchronous one that its caller waits
// for.
//
// Under the mutex: a request stands in the list from its acceptance until its last use of a buffer, of the
// handle, or of the AsyncRead. Whoever has seen it leave the list knows that nothing will touch them any
// more. A cancelled request submits nothing further.
#pragma once

#include <libusb.h>

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "../status.h"

struct IOUSBDevRequestTO;

namespace tovix::platform {

class AsyncRead;

/// What a transfer needs to know of an endpoint.
struct Endpoint {
    UInt8 address = 0;  ///< bit 7 set: towards the host
    UInt8 type = 0;     ///< LIBUSB_TRANSFER_TYPE_*
    UInt16 packet_bytes = 1;
};

/// A set of endpoints, one bit each.
using EndpointSet = std::uint32_t;
constexpr EndpointSet kEveryEndpoint = ~EndpointSet{0};
constexpr EndpointSet set_of(const Endpoint& endpoint) noexcept {
    return EndpointSet{1} << ((endpoint.address & 0x0F) | (endpoint.address & 0x80) >> 3);
}

inline EndpointSet set_of(const std::vector<Endpoint>& endpoints) noexcept {
    EndpointSet set = 0;
    for (const Endpoint& each : endpoints)
        set |= set_of(each);
    return set;
}

class Transfers {
  public:
    Transfers();
    ~Transfers();

    /// Accept transfers from now on, over an open handle whose context has a running event thread.
    void open(libusb_device_handle* handle);
    /// Accept none, and drain those under way: afterwards the handle is free to be closed.
    void close();

    IOReturn control(IOUSBDevRequestTO& request);
    IOReturn read(const Endpoint& endpoint, void* data, UInt32& size, UInt32 no_data_ms);
    IOReturn write(const Endpoint& endpoint, const void* data, UInt32 size, UInt32 no_data_ms);
    IOReturn read_async(const Endpoint& endpoint, AsyncRead& read);

    /// Cancel what is under way on the endpoints, without waiting for its end.
    void cancel(EndpointSet endpoints);
    /// Cancel what is under way on the endpoints, and wait until it has ended and its completions were delivered.
    void drain(EndpointSet endpoints);

    /// Whether the endpoint has stalled since it was last cleared. It refuses transfers meanwhile.
    bool halted(EndpointSet endpoint);
    void clear_halted(EndpointSet endpoints);

  private:
    struct Request;
    class SyncRequest;
    static void LIBUSB_CALL on_end(libusb_transfer* transfer) noexcept;

    // With the mutex held.
    Request& accept(const Endpoint& endpoint);
    void forget(const Request& request);
    [[nodiscard]] IOReturn submit(Request& request);
    void mark_cancelled(EndpointSet endpoints);

    std::mutex mutex_;               // guards everything below
    std::condition_variable ended_;  // a transfer has ended, or a request has left the list
    libusb_device_handle* handle_ = nullptr;
    std::list<Request> requests_;
    EndpointSet halted_ = 0;
};

}  // namespace tovix::platform
