// SPDX-License-Identifier: Apache-2.0
// The bus as a USB/IP server: devices of this process for the kernel of another machine, or of this one.
#pragma once

#include "bus.h"

namespace tovix::simulator {

/// Serve one client over a connected stream socket, which stays the caller's, until the client or the device that it
/// imported leaves, or somebody shuts the socket down. The n-th port has the bus ID "1-n". False when the client did
/// not keep to the protocol. Time must pass by itself on the bus.
[[nodiscard]] bool serve_usbip(Bus& bus, int socket);

}  // namespace tovix::simulator
