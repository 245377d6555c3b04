// SPDX-License-Identifier: Apache-2.0
// Serves bare cameras to the kernel that this runs on, and plugs and unplugs them as it is told:
//
//   camera_server MODEL...
//
// The n-th camera has serial number n, marks its frames, and is not plugged in at first. Orders come on standard input and
// are answered on standard output, see camera_orders.h.
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "camera_orders.h"
#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

namespace {

using namespace std::chrono_literals;

/// Import bus ID 1-`number` over the client's end of a connection, and hand that to the kernel's virtual host
/// controller: what "usbip attach" does. False while there is no such device, or the controller still has the last one.
bool attach(int socket, unsigned number) {
    constexpr unsigned kBus = 1, kHighSpeed = 3;
    unsigned char request[40] = {0x01, 0x11, 0x80, 0x03}, reply[8 + 312];
    std::snprintf(reinterpret_cast<char*>(request + 8), 32, "%u-%u", kBus, number);
    if (send(socket, request, sizeof request, MSG_NOSIGNAL) != ssize_t{sizeof request}) return false;
    if (recv(socket, reply, 8, MSG_WAITALL) != 8 || std::memcmp(reply + 4, "\0\0\0\0", 4) != 0) return false;
    if (recv(socket, reply + 8, 312, MSG_WAITALL) != 312) return false;
    std::ofstream controller("/sys/devices/platform/vhci_hcd.0/attach");
    controller << number - 1 << ' ' << socket << ' ' << (kBus << 16 | number) << ' ' << kHighSpeed << std::flush;
    return controller.good();
}

/// Attach the camera whenever it is there, until the process ends.
[[noreturn]] void keep_attached(unsigned number) {
    for (;;) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
        std::thread server([&] {
            tovix_simulation_serve_usbip(ends[0]);
            shutdown(ends[0], SHUT_RDWR);
        });
        if (!attach(ends[1], number)) shutdown(ends[1], SHUT_RDWR);
        close(ends[1]);  // the kernel has its own hold of it
        server.join();
        close(ends[0]);
        std::this_thread::sleep_for(10ms);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || tovix_simulation_begin(TOVIX_SIMULATION_FAST) != TOVIX_OK) return 2;
    std::vector<tovix_simulated_camera*> cameras;
    for (int i = 1; i < argc; ++i) {
        tovix_simulated_options options{};
        options.size = sizeof options;
        options.model = argv[i];
        options.serial_number = static_cast<std::uint32_t>(i);
        options.mark_frames = 1;
        if (tovix_simulation_attach(&options, &cameras.emplace_back()) != TOVIX_OK) return 1;
        tovix_simulation_unplug(cameras.back());
        std::thread(keep_attached, static_cast<unsigned>(i)).detach();
    }
    const bool obeyed = tovix::stacks::obey(stdin, stdout, cameras.size(), [&](bool plug, std::size_t i) {
        return (plug ? tovix_simulation_plug_in : tovix_simulation_unplug)(cameras[i]) == TOVIX_OK;
    });
    _exit(obeyed ? 0 : 1);  // the threads hold what the simulation is made of
}
