/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Simulated cameras in this process (library libtovix-sim): develop and test an application without hardware.
 *
 * tovix_simulation_begin() puts a simulated bus in the place of the host's; cameras are then attached to it,
 * found, opened and streamed through the ordinary calls of tovixapi.h, which do not know the difference.
 *
 * Results are those of tovixapi.h; a call that finds no memory returns TOVIX_ENOMEM and has done nothing. Records begin
 * with their size: what a caller was compiled without is zero, a size of 0 is refused. Threads: begin and end while no camera is open and no other thread uses
 * the library; every other call from any thread.
 */
#ifndef TOVIXAPI_SIMULATION_H
#define TOVIXAPI_SIMULATION_H

#include <stdint.h>

#include "tovixapi/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** How time passes on the simulated bus. */
enum {
    TOVIX_SIMULATION_REAL_TIME = 0, /**< a second is a second */
    TOVIX_SIMULATION_STEPPED = 1,   /**< time stands still but for tovix_simulation_step() and the library's pauses */
    TOVIX_SIMULATION_FAST = 2       /**< whoever waits for the next frame gets it at once */
};

/**
 * What a camera has when it is attached, and each time it is plugged in again. Only tovix_init() brings up one that is
 * not ready, and it acts once a process: attach such a camera before it, or attach a READY one.
 */
enum {
    TOVIX_SIMULATED_BARE = 0,         /**< a bare FX2 without firmware */
    TOVIX_SIMULATED_WITHOUT_FPGA = 1, /**< firmware, but no FPGA image yet */
    TOVIX_SIMULATED_READY = 2         /**< ready to be opened */
};

/** An attached camera; freed by tovix_simulation_end(). */
typedef struct tovix_simulated_camera tovix_simulated_camera;

/** How to make a camera. Zero everything but `size` for the defaults. */
typedef struct tovix_simulated_options {
    uint32_t size;          /**< bytes of this record, as the caller was compiled */
    uint32_t state;         /**< TOVIX_SIMULATED_* */
    const char* model;      /**< name from tovix_simulation_model_name(); null: the first */
    const char* picture;    /**< PNG file that the camera looks at; null: the built-in test chart */
    uint32_t serial_number; /**< 0: 1001, 1002, ... in the order of attaching */
    uint32_t mark_frames;   /**< 1: every frame carries a serial and checksums, see tovix_simulation_check_frame() */
    uint32_t full_speed;    /**< 1: attached at USB full speed instead of high speed */
    float light[3];         /**< colour of the light: red, green, blue; all 0: 1, 1, 1 */
    float noise;            /**< read noise, standard deviation in 8-bit levels; 0: 1.0; negative: none */
    float blur;             /**< lens blur, standard deviation in pixels */
} tovix_simulated_options;

/** Where a fault strikes: at the device's part in an operation, or, from TOVIX_FAULT_AT_OPEN on, without it. */
enum {
    TOVIX_FAULT_AT_MEMORY_WRITE = 0,
    TOVIX_FAULT_AT_REGISTER_READ = 1,
    TOVIX_FAULT_AT_REGISTER_WRITE = 2,
    TOVIX_FAULT_AT_DESCRIPTOR = 3,
    TOVIX_FAULT_AT_SET_CONFIGURATION = 4,
    TOVIX_FAULT_AT_SET_ALTERNATE = 5,
    TOVIX_FAULT_AT_CLEAR_HALT = 6,
    TOVIX_FAULT_AT_BULK_OUT = 7,
    TOVIX_FAULT_AT_BULK_IN = 8,     /**< a frame on its way to the host */
    TOVIX_FAULT_AT_OPEN = 9,        /**< the host opens the device */
    TOVIX_FAULT_AT_QUEUE_READ = 10, /**< the host queues a read of frames */
    TOVIX_FAULT_AT_MOMENT = 11 /**< no operation: the fault comes by itself, once, `delay_us` after it was planted */
};

/** What goes wrong, and where it can. UNPLUG and REPLUG can everywhere. */
enum {
    TOVIX_FAULT_STALL = 0,   /**< at every operation of the device */
    TOVIX_FAULT_TIMEOUT = 1, /**< no answer: likewise */
    TOVIX_FAULT_SHORT = 2,   /**< half an answer, or half of what was written taken: where bytes move */
    TOVIX_FAULT_EMPTY = 3,   /**< no bytes at all, as a success: likewise */
    TOVIX_FAULT_OVERRUN = 4, /**< more than was asked for: where bytes move, but for BULK_OUT */
    TOVIX_FAULT_UNPLUG = 5,
    TOVIX_FAULT_REPLUG = 6,  /**< unplugged, and plugged in again 1.5 s later */
    TOVIX_FAULT_HOSTILE = 7, /**< the answer, or the frame, is `value`, repeated: REGISTER_READ, DESCRIPTOR, BULK_IN */
    TOVIX_FAULT_REFUSED = 8, /**< the host may not: OPEN, QUEUE_READ */
    TOVIX_FAULT_BUSY = 9     /**< the host may not for now, somebody else holds it: likewise */
};

/** A fault to plant. */
typedef struct tovix_simulated_fault {
    uint32_t size;     /**< bytes of this record, as the caller was compiled */
    uint32_t place;    /**< where: TOVIX_FAULT_AT_* */
    uint32_t kind;     /**< what: TOVIX_FAULT_STALL to TOVIX_FAULT_BUSY */
    uint32_t address;  /**< register, memory address, descriptor (type * 256 + index), configuration, alternate setting
                            or endpoint (CLEAR_HALT); 0xFFFFFFFF: any. Ignored at the other places */
    uint32_t skip;     /**< matching operations that still go well; ignored at MOMENT */
    uint32_t times;    /**< operations that fail from then on; 0: one; 0xFFFFFFFF: for good; ignored at MOMENT */
    uint32_t value;    /**< of TOVIX_FAULT_HOSTILE, low byte first */
    uint32_t delay_us; /**< not before this long after it was planted, in simulated time */
} tovix_simulated_fault;

/** Name of model `index`, or null beyond the last or without memory. Valid until the next call on this thread. */
TOVIX_API const char* tovix_simulation_model_name(uint32_t index);

/** Put an empty simulated bus in the place of the host's.
 * @return 0; TOVIX_EINVAL when there is one, or for an unknown pace; TOVIX_ENOMEM */
TOVIX_API int32_t tovix_simulation_begin(uint32_t pace);

/** Remove the simulated bus with its cameras; the host's USB services are used again. */
TOVIX_API void tovix_simulation_end(void);

/**
 * Attach a camera.
 * @param options  null: the first model, ready to be opened
 * @param camera   receives the camera; may be null
 * @return 0; TOVIX_EINVAL, after a report, for no simulated bus, a size of 0, an unknown model or state, or a bad
 *         picture file; TOVIX_ENOMEM
 */
TOVIX_API int32_t tovix_simulation_attach(const tovix_simulated_options* options, tovix_simulated_camera** camera);

/** Pull the camera out; it loses its firmware and FPGA image. And plug it in again, in its first state.
 * @return 0; TOVIX_EFAIL for no camera; TOVIX_ENOMEM */
TOVIX_API int32_t tovix_simulation_unplug(tovix_simulated_camera* camera);
TOVIX_API int32_t tovix_simulation_plug_in(tovix_simulated_camera* camera);

/** Plant a fault; several may be planted. And remove all that are left.
 * @return 0; TOVIX_EFAIL for no camera or no fault; TOVIX_EINVAL for a size of 0, an unknown place or kind, or a kind
 *         that is impossible at that place; TOVIX_ENOMEM */
TOVIX_API int32_t tovix_simulation_plant_fault(tovix_simulated_camera* camera, const tovix_simulated_fault* fault);
TOVIX_API int32_t tovix_simulation_clear_faults(tovix_simulated_camera* camera);

/** Frames that the sensor has taken since the camera was attached, read or not. */
TOVIX_API uint32_t tovix_simulation_frames_produced(tovix_simulated_camera* camera);

/** Let time pass, in microseconds. On a bus that is not stepped, time jumps ahead.
 * @return 0; TOVIX_EINVAL for no simulated bus, or more than 2^62; TOVIX_ENOMEM */
TOVIX_API int32_t tovix_simulation_step(uint64_t microseconds);

/**
 * Serve the cameras of the simulated bus to another USB host, in the USB/IP protocol: to one client that asks for the
 * list, or that imports a camera and uses it until it, or the camera, leaves. The n-th camera that was attached has the
 * bus ID "1-n". A bare one leaves once it has its firmware; it can be imported again when it is back.
 * @param socket  a connected stream socket; it stays the caller's, who shuts it down to end the call. Each client needs a
 *                thread of its own.
 * @return 0 when the client or the camera has left; TOVIX_EFAIL when the client broke the protocol; TOVIX_EINVAL for no
 *         simulated bus, or one that is stepped; TOVIX_ENOMEM
 */
TOVIX_API int32_t tovix_simulation_serve_usbip(int socket);

/**
 * Whether a frame of a camera that marks its frames is whole: every row of one and the same frame, and unchanged.
 * @param frame      the frame: `height` rows of `row_bytes` bytes, unpadded
 * @param row_bytes  at least 16
 * @param serial     receives the frame's serial, which rises by one with every frame taken; may be null
 * @return 1 when it is whole, 0 when it is not, TOVIX_EFAIL for missing arguments
 */
TOVIX_API int32_t tovix_simulation_check_frame(const uint8_t* frame, uint32_t row_bytes, uint32_t height,
                                               uint32_t* serial);

#ifdef __cplusplus
}
#endif

#endif
