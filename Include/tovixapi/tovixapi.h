/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The C interface of the Tovix SDK: find cameras, bring them up, control them, stream raw frames, convert
 * them to images. C11 and C++.
 *
 * Conventions
 *   - A call returns a signed 32-bit result: 0, a count or an index on success, a negative value on failure (the
 *     TOVIX_E* values below, or a status of the host's USB services passed up unchanged). A call that fails leaves its
 *     outputs unwritten unless its comment says otherwise.
 *   - A null camera handle, or a null pointer where a result must go, is refused with TOVIX_EFAIL.
 *   - Failures, and many steps of start-up and open, are reported as one line on the standard error stream.
 *   - The application owns the handle from open to close, and every record and buffer that it passes in.
 *   - One handle is used by one thread at a time. While its stream runs, any number of threads may besides wait for
 *     frames, release buffers and ask for their addresses and size, and one may stop the stream. Different cameras
 *     are independent.
 *   - No call may be made from within a callback of the library.
 */
#ifndef TOVIXAPI_TOVIXAPI_H
#define TOVIXAPI_TOVIXAPI_H

#include <stdbool.h>
#include <stdint.h>

#include "tovixapi/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results ------------------------------------------------------------------------------------------------- */

/** Results of the interface. They are its own and do not follow the host's error numbers. */
enum {
    TOVIX_OK = 0,
    TOVIX_EFAIL = -1,     /**< missing argument, device not found, a platform call or a register transfer failed */
    TOVIX_ESEARCH = -3,   /**< the search for devices failed */
    TOVIX_EADJUST = -5,   /**< an adjustment could not read or write a property */
    TOVIX_ENOMEM = -12,   /**< out of memory */
    TOVIX_EMODEL = -14,   /**< model data malformed or without the requested record */
    TOVIX_EINVAL = -22,   /**< invalid argument, or not in this state */
    TOVIX_ENOSLOT = -28,  /**< no free slot */
    TOVIX_ELIGHT = -35,   /**< the picture is too dark or too bright to measure its white balance */
    TOVIX_ENOFOCUS = -60, /**< the focus search gave up */
    TOVIX_ENOTSUP = -78,  /**< not provided */
    TOVIX_ENODATA = -96   /**< no frame can come: the stream is not running */
};

/* ---- Records ------------------------------------------------------------------------------------------------- */

/** An open camera. Opaque; made by the open calls, freed by tovix_camera_close(). */
typedef struct _tovix _tovix;

/** Identity of a camera, as read when it was opened. */
typedef struct tovix_version {
    uint32_t reserved;         /**< always 0 */
    uint32_t product_id;       /**< USB product ID */
    uint32_t serial_number;    /**< the serial-number string read as a decimal number */
    uint32_t release_number;   /**< device release number (bcdDevice) */
    uint32_t firmware_version; /**< firmware version word */
    uint32_t high_speed;       /**< 1 when the camera runs at USB high speed, else 0 */
} tovix_version;

/** Readout geometry: which area of the sensor is read, and how it is thinned out. */
typedef struct _tovix_frame_format {
    uint32_t x_offset;     /**< left edge of the area, in sensor pixels */
    uint32_t y_offset;     /**< top edge of the area, in sensor pixels */
    uint32_t width;        /**< width of the area, in sensor pixels (before subsampling) */
    uint32_t height;       /**< height of the area, in sensor pixels (before subsampling) */
    uint32_t pixel_format; /**< reported as 0; ignored when the format is set */
    uint16_t subsample_x;  /**< horizontal factor, 1 = every pixel */
    uint16_t reserved_x;   /**< reported as 0; ignored when the format is set */
    uint16_t subsample_y;  /**< vertical factor */
    uint16_t reserved_y;   /**< reported as 0; ignored when the format is set */
} _tovix_frame_format;

/** Bits of tovix_image_format.flags: how the colour filter lies over the frame. */
enum {
    TOVIX_IMAGE_MONO = 1,          /**< monochrome sensor */
    TOVIX_IMAGE_SECOND_FAMILY = 2, /**< second family of colour codes (24 to 31). In a conversion: 16-bit
                                      samples have their least significant byte first, not last */
    TOVIX_IMAGE_BLUE_ROW = 4,      /**< the first row holds blue and green */
    TOVIX_IMAGE_GREEN_FIRST = 8,   /**< the first pixel of the first row is green */
    TOVIX_IMAGE_ROWS_REVERSED = 16 /**< in a conversion: reverse the order of rows once more */
};

/** Description of a captured frame. */
typedef struct tovix_image_format {
    uint32_t size;               /**< bytes of this record: 52 */
    uint32_t width;              /**< pixels a row */
    uint32_t height;             /**< rows */
    uint32_t pixel_format;       /**< 0 one byte, 1 two bytes, 2 three bytes a pixel */
    uint32_t image_size;         /**< bytes in one frame */
    uint32_t flags;              /**< TOVIX_IMAGE_* bits */
    uint32_t unused_6_to_8[3];   /**< left as the caller passed them */
    uint32_t reserved;           /**< 0. In a conversion, a low byte other than 0: the frame is interlaced,
                                      even rows of the picture first, then the odd ones */
    uint32_t unused_10_to_12[3]; /**< left as the caller passed them */
} tovix_image_format;

/** How the missing colours of a frame are filled in. */
enum {
    TOVIX_DEMOSAIC_NONE = 0,       /**< not at all: the raw mosaic as grey */
    TOVIX_DEMOSAIC_NEAREST = 1,    /**< copies of neighbours: the fastest */
    TOVIX_DEMOSAIC_EDGE = 2,       /**< averages, green along edges */
    TOVIX_DEMOSAIC_ZURNO = 3,      /**< the finest; only in the parameters of a conversion */
    TOVIX_DEMOSAIC_QUELT = 8,      /**< smooth, nearly as fast as nearest */
    TOVIX_DEMOSAIC_FOUR_COLOUR = 9 /**< 32-bit images of 8-bit frames get four planes, other images QUELT;
                                      none for 48-bit images and for 24-bit ones of interlaced 8-bit frames */
};

/** Colour-correction matrices. 1 to 13 are the model's; a default one where it has none of that number. */
enum {
    TOVIX_MATRIX_NONE = 0,        /**< no matrix, and so no hue, saturation, gain and white balance */
    TOVIX_MATRIX_MODEL = 1,       /**< the first of the model's own */
    TOVIX_MATRIX_IDENTITY = 14,   /**< only hue, saturation, gain and white balance */
    TOVIX_MATRIX_CUSTOM = 15,     /**< the application's own */
    TOVIX_MATRIX_CUSTOM_ONLY = 16 /**< the same without hue, saturation, gain and white balance */
};

/**
 * Settings for one conversion. The short form ends after `correction_matrix` and leaves everything else to
 * the settings of the camera; the full form overrides all of them but the look-up table. Numbers are finite.
 */
typedef struct tovix_conversion_params {
    uint32_t size;              /**< bytes of this record: 12 (short form) or 44 (full form) */
    uint32_t demosaic_method;   /**< TOVIX_DEMOSAIC_* */
    uint32_t correction_matrix; /**< TOVIX_MATRIX_*, or 2 to 13 */
    uint32_t flip_x;            /**< not 0: mirror each row */
    uint32_t flip_y;            /**< not 0: last row first */
    float hue;                  /**< rotation of the colours, degrees */
    float saturation;           /**< 1.0 is neutral; above 0.05 where colour_gains is not 0 */
    uint32_t colour_gains;      /**< what the next three are; not 0: gains of red, green and blue */
    float gain_or_red;          /**< gain of the luminance, or of red; 1.0 is neutral */
    float wb_u_or_green;        /**< white balance, blue-yellow, hundredths (0: neutral); or gain of green */
    float wb_v_or_blue;         /**< the same for red-cyan; or gain of blue */
} tovix_conversion_params;

/** Properties: parameters of the camera and of the conversion, by number. `tovix_properties` says more of each. */
enum {
    TOVIX_PROP_BRIGHTNESS = 0,
    TOVIX_PROP_CONTRAST = 1,
    TOVIX_PROP_GAMMA = 5,
    TOVIX_PROP_EXPOSURE = 20,
    TOVIX_PROP_IRIS = 21,  /**< known to tovix_oneshot_autoiris(), but no camera has it */
    TOVIX_PROP_FOCUS = 22, /**< known to the autofocus, but no camera has it */
    TOVIX_PROP_GAIN = 40,
    TOVIX_PROP_GAIN_RED = 41,
    TOVIX_PROP_GAIN_BLUE = 42,
    TOVIX_PROP_GAIN_GREEN1 = 43, /**< green pixels of the red rows */
    TOVIX_PROP_GAIN_GREEN2 = 44, /**< green pixels of the blue rows */
    TOVIX_PROP_DEMOSAICING_METHOD = 64,
    TOVIX_PROP_CORRECTION_MATRIX = 65,
    TOVIX_PROP_FLIPPING = 66,
    TOVIX_PROP_DIGITAL_SATURATION = 67,
    TOVIX_PROP_DIGITAL_HUE = 68,
    TOVIX_PROP_DIGITAL_WHITEBALANCE_U = 69,
    TOVIX_PROP_DIGITAL_WHITEBALANCE_V = 70,
    TOVIX_PROP_DIGITAL_GAIN = 71,
    TOVIX_PROP_DIGITAL_GAIN_RED = 72,
    TOVIX_PROP_DIGITAL_GAIN_GREEN = 73,
    TOVIX_PROP_DIGITAL_GAIN_BLUE = 74,
    TOVIX_PROP_MAX_WIDTH = 81,
    TOVIX_PROP_MAX_HEIGHT = 82,
    TOVIX_PROP_UNIT_WIDTH = 83,
    TOVIX_PROP_UNIT_HEIGHT = 84,
    TOVIX_PROP_MAX_SUBSAMPLING = 85,
    TOVIX_PROP_TEMPERATURE = 108,
    TOVIX_PROP_BLOCK_640 = 258
};

/** Bits of a property's flag word. Its other bits pass between application and camera unchanged. */
enum {
    TOVIX_PROPERTY_ON = 0x8000 /**< temperature control and fan: switched on */
};
#define TOVIX_PROPERTY_PRESENT 0x80000000u /**< the camera has the property; see tovix_property_get_range() */

/** Who keeps a property. */
enum {
    TOVIX_KEPT_BY_CAMERA = 0,     /**< a block of the camera's registers, which tells the range too */
    TOVIX_KEPT_BY_LIBRARY = 1,    /**< the camera's handle; the tone curve made of it goes to the camera */
    TOVIX_KEPT_BY_CONVERSION = 2, /**< the camera's conversion object */
    TOVIX_FIXED = 3               /**< what the camera said of itself; cannot be set and has no range */
};

/** One row of the property table. */
typedef struct tovix_property_info {
    uint32_t property;       /**< TOVIX_PROP_* */
    const char* name;        /**< as in TOVIX_PROP_*, in lower case */
    const char* unit;        /**< of the value as a float (TovixGetProperty()); "" for a factor or a number, and where
                                  it depends on the camera */
    const char* description; /**< one line */
    uint32_t kept_by;        /**< TOVIX_KEPT_BY_*, TOVIX_FIXED */
    uint32_t address;        /**< first register of the property; 0 where it is in none */
    int32_t min, max;        /**< range of the integer value; both 0 where the camera tells it, or there is none */
} tovix_property_info;

/** Every property that tovix_property_get() serves, by rising number. */
extern TOVIX_API const tovix_property_info* const tovix_properties;
extern TOVIX_API const int32_t tovix_property_count;

/** What tovix_enable_callback_notification() registers. */
typedef void (*tovix_notification)(void* context, uint32_t type);

/** One row of the camera table: a model that the library supports. */
typedef struct camera_id {
    uint16_t product_id;       /**< USB product ID */
    uint16_t vendor_id;        /**< USB vendor ID */
    uint16_t release;          /**< device release number that the row is for; 0xFFFF for any */
    uint16_t subsampling;      /**< 1 when the model supports subsampling, else 0 */
    const char* firmware_file; /**< file under the resource directory; "%X" stands for the device release number */
    const char* fpga_file;     /**< same for the FPGA image; null when the model has no FPGA */
    const uint8_t* model_data; /**< tag/length/value records, ended by a zero tag */
    uint32_t model_data_size;  /**< bytes at model_data */
} camera_id;

/** The supported models. Lookups take the first match. */
extern TOVIX_API const camera_id camera_ids[];
extern TOVIX_API const int32_t camera_id_count;

/** The resource directory in force; a string owned by the library, replaced by tovix_init(). Null before the first. */
extern TOVIX_API const char* RESOURCE_FILE_ROOT;

/* ---- Registers ----------------------------------------------------------------------------------------------- */

/** Addresses of camera registers, 32 bits each. A pair is one word of two 16-bit values, the first in the low half. */
enum {
    TOVIX_FPGA_CONTROL = 0x0008,       /**< bit 5 reads 1 once the FPGA is configured */
    TOVIX_FIRMWARE_VERSION = 0x000C,   /**< firmware version */
    TOVIX_VIDEO_SWITCH = 0x0214,       /**< write 0x80: video on; 0: off */
    TOVIX_TEMPERATURE = 0x0690,        /**< temperature block: flags, value, minimum, maximum */
    TOVIX_FAN = 0x0730,                /**< bit 31 present, bit 15 on */
    TOVIX_FO_MAX_SIZE = 0x1000,        /**< pair: largest width, height */
    TOVIX_FO_UNIT_SIZE = 0x1004,       /**< pair: granularity of sizes */
    TOVIX_FO_POSITION = 0x1008,        /**< pair: frame offset */
    TOVIX_FO_SIZE = 0x100C,            /**< pair: width, height of the sensor area */
    TOVIX_FO_COLOR_ID = 0x1010,        /**< colour-filter code that the host assumes */
    TOVIX_FO_COLOR_INQ = 0x1014,       /**< the sensor's colour code */
    TOVIX_FO_SUBSAMPLING = 0x1018,     /**< pair: subsampling factors */
    TOVIX_FO_SUBSAMPLING_INQ = 0x101C, /**< low byte: largest subsampling factor */
    TOVIX_FO_KPS_MINMAX_INQ = 0x1040,  /**< pair: smallest, largest data rate */
    TOVIX_FO_KPS = 0x1048,             /**< current data rate */
    TOVIX_FO_KPS_ARRAY_CNT = 0x104C,   /**< number of selectable data rates */
    TOVIX_FO_KPS_ARRAY = 0x1050,       /**< each read gives the next two selectable data rates */
    TOVIX_MSG_MASK = 0x4FF8,           /**< bit n set: message n is supported */
    TOVIX_MSG_SELECT = 0x4FFC,         /**< number of the message that the data belongs to */
    TOVIX_MSG_DATA = 0x5000            /**< message data from here on */
};

/** Words of a property block, in bytes from its start. */
enum { TOVIX_PROPERTY_FLAGVAL = 0, TOVIX_PROPERTY_CURVAL = 4, TOVIX_PROPERTY_MINVAL = 8, TOVIX_PROPERTY_MAXVAL = 12 };

/* ---- Start-up, enumeration, open and close -------------------------------------------------------------------- */

/**
 * Bring every attached camera into a usable state: firmware for the bare ones, then FPGA images.
 *
 * Called once, from one thread, before anything else. Blocks for the downloads, and 2.5 s when firmware was sent. A
 * camera whose download fails is reported and left out. A second call only changes the resource directory.
 *
 * Simulated cameras that are bare, like real ones, come up only here: attach them before.
 *
 * @param resource_dir  directory with one subdirectory a model; copied. Null chooses
 *                      "/Library/Frameworks/TovixSDK.framework/Resources/files".
 * @return 0; TOVIX_EFAIL when the registry of devices cannot be reached; TOVIX_ESEARCH when a search failed;
 *         TOVIX_ENOMEM.
 */
TOVIX_API int32_t tovix_init(const char* resource_dir);

/**
 * List the attached cameras. Opens each of them for a moment, so one that is open already, in
 * this program or another, is not counted.
 *
 * @param records  receives up to *count records; may be null when *count is 0
 * @param count    in: room in `records`; out, on success: cameras found, which may be more
 * @return the number of cameras found; TOVIX_EFAIL or TOVIX_ESEARCH, and *count unchanged, when the search failed.
 */
TOVIX_API int32_t tovix_enum_cameras(tovix_version* records, uint32_t* count);

/**
 * Open the first attached camera of wanted->product_id and, unless it is 0, wanted->serial_number.
 *
 * @param camera  receives the handle; null when no attached camera matched, could be opened, or found memory
 * @return 0, also with a null handle; TOVIX_EFAIL for a null `wanted`, a product ID that is not in the camera table, or
 *         a registry that cannot be reached; TOVIX_ESEARCH when the search failed.
 */
TOVIX_API int32_t tovix_camera_open(_tovix** camera, const tovix_version* wanted);

/** As tovix_camera_open() for any camera of that product ID. */
TOVIX_API int32_t tovix_camera_open_by_pid(_tovix** camera, int product_id);

/** Open the first camera found. TOVIX_EFAIL, without a report, when none is found; else as tovix_camera_open(). */
TOVIX_API int32_t tovix_camera_open_any(_tovix** camera);

/**
 * Close a camera, free everything it owns, and set *camera to null. A stream that still runs is stopped first.
 * Works also when the camera has been unplugged. A null handle is accepted.
 * @return 0
 */
TOVIX_API int32_t tovix_camera_close(_tovix** camera);

/** Fill `out` with the identity that was read when the camera was opened. No bus traffic. @return 0 */
TOVIX_API int32_t tovix_get_version(_tovix* camera, tovix_version* out);

/**
 * Copy the model name, at most 31 characters and a NUL.
 * @param size  bytes at `name`
 * @return 0, or TOVIX_EINVAL when the name and its NUL do not fit; then nothing is written.
 */
TOVIX_API int32_t tovix_get_model_name(_tovix* camera, char* name, int size);

/* ---- Frame format and data rates ------------------------------------------------------------------------------ */

/**
 * Choose the area of the sensor and the subsampling, then reload the list of data rates, which also resets the current
 * rate to the model's default. Not while a stream is enabled: the ring keeps the old frame size.
 *
 * The low 16 bits of each number count. The camera itself decides what it makes of a size that is no multiple of its
 * units, or of an area beyond its sensor: when it reads another area than was asked for, no frame will come.
 *
 * @return 0; TOVIX_EINVAL for a width, height or factor of 0, or a factor above 1 on a model without subsampling (then
 *         nothing was sent); another negative value when a register transfer failed.
 */
TOVIX_API int32_t tovix_set_video_format(_tovix* camera, const _tovix_frame_format* format);

/** Fill `format` with the readout geometry in force. No bus traffic. @return 0 */
TOVIX_API int32_t tovix_get_video_format(_tovix* camera, _tovix_frame_format* format);

/**
 * Describe the frames that the camera delivers. No bus traffic.
 * @return 0; TOVIX_EFAIL when the sensor's colour code has no layout: then `size` to `image_size` are written, no more
 */
TOVIX_API int32_t tovix_get_image_format(_tovix* camera, tovix_image_format* out);

/** 1 for a camera with a colour filter, 0 for a monochrome one. */
TOVIX_API int32_t tovix_is_color(_tovix* camera);

/** Not 0 when the model can subsample. */
TOVIX_API int32_t tovix_supports_subsampling(_tovix* camera);

/** Number of selectable data rates. */
TOVIX_API int32_t tovix_count_available_data_rates(_tovix* camera);

/**
 * Copy the selectable data rates, in the camera's order. They are the camera's own codes.
 * @param capacity  room in `rates`
 * @return how many were copied; a negative capacity is returned as it is
 */
TOVIX_API int32_t tovix_enum_available_data_rates(_tovix* camera, uint32_t* rates, int capacity);

/** Choose a data rate. The camera, not this call, checks it against the list. */
TOVIX_API int32_t tovix_set_data_rate(_tovix* camera, uint32_t rate);

/** Read the current data rate from the camera. */
TOVIX_API int32_t tovix_get_data_rate(_tovix* camera, uint32_t* rate);

/* ---- Streaming ------------------------------------------------------------------------------------------------ */

/**
 * Allocate the ring of three frame buffers, each of width x height bytes of the format in force.
 * @return 0; TOVIX_EFAIL while a stream is running or enabled; TOVIX_EINVAL for a frame of 0 or more than 2^31 - 1
 *         bytes; TOVIX_ENOMEM; a negated error number when a lock cannot be set up. Nothing is kept after a failure.
 */
TOVIX_API int32_t tovix_enable_streaming(_tovix* camera);

/**
 * Start the acquisition thread. When it returns 0 the camera's video is on and the first frame is being read.
 * @return 0; TOVIX_EINVAL when the stream is running or not enabled; TOVIX_EFAIL when the camera could not be switched
 *         on, after which a new start may follow; a negated error number when no thread could be made.
 */
TOVIX_API int32_t tovix_start_streaming(_tovix* camera);

/**
 * Wait for a frame newer than the last one handed out, and hold its buffer.
 *
 * Blocks, without a time limit, until such a frame is complete or the stream ends; returns at once when one is there
 * already. Frames that arrived meanwhile are skipped: the result is always the newest.
 *
 * @return 0 to 2: index of the buffer. Its tovix_get_video_frame_size() bytes (rows top to bottom, unpadded) stay
 *         unchanged until tovix_release_buffer() for that index; the library keeps ownership.
 *         TOVIX_ENODATA: the stream is not running, or ended during the wait (it was stopped, or the camera is gone).
 *         TOVIX_EINVAL: the newest frame is already being overwritten, because the other two buffers are held.
 *         Nothing is held after a negative result.
 *
 * Threads: any, also several at once; each frame goes to one of them.
 */
TOVIX_API int32_t tovix_wait_for_capture_to_buffer(_tovix* camera);

/**
 * Give back one hold of a buffer. Threads: any.
 * @return 0; TOVIX_EINVAL for an index that is not 0 to 2, or a buffer that is not held.
 */
TOVIX_API int32_t tovix_release_buffer(_tovix* camera, int32_t index);

/**
 * Stop the stream: waits for the read under way (at most 10 s without data), switches the video off and joins the
 * acquisition thread. The ring and its holds stay, and a new start may follow. Not from within the acquisition thread.
 * @return 0, also for a stream that ended because the camera is gone; TOVIX_EFAIL when no stream is running.
 */
TOVIX_API int32_t tovix_stop_streaming(_tovix* camera);

/** Free the ring; its buffers become invalid. @return 0; TOVIX_EFAIL while the stream is running. */
TOVIX_API int32_t tovix_disable_streaming(_tovix* camera);

/** Bytes in one frame, as the last enable fixed it; 0 before the first. */
TOVIX_API uint32_t tovix_get_video_frame_size(_tovix* camera);

/** Buffers in the ring: 3. */
TOVIX_API int32_t tovix_get_buffer_count(_tovix* camera);

/** First byte of a buffer; null for an index that is not 0 to 2, and when streaming is not enabled. */
TOVIX_API uint8_t* tovix_get_buffer_address(_tovix* camera, int32_t index);

/** Not provided: TOVIX_ENOTSUP. */
TOVIX_API int32_t tovix_get_buffer_status(_tovix* camera, int32_t index);
TOVIX_API int32_t tovix_get_buffer_acquired_size(_tovix* camera, int32_t index);

/* ---- Conversion ----------------------------------------------------------------------------------------------- */

/**
 * Convert a frame to a 24-bit image with the camera's conversion object, which the first call makes (see
 * tz_usb_create_vorm()). The table, the matrix and whatever `params` leaves open come from its settings.
 *
 * Only while the stream runs and is not being stopped. Blocks for the conversion; no bus traffic.
 *
 * @param dst           receives `height` rows of `width` pixels of 3 bytes: red, green, blue. Unpadded, but
 *                      rows of frames that are not interlaced are padded to a multiple of 4 bytes where the
 *                      image is grey: monochrome frames, and others with TOVIX_DEMOSAIC_NONE. Padding is not
 *                      written.
 * @param src           the frame, unpadded
 * @param image_format  the frame's description, as tovix_get_image_format() gives it: an even width and
 *                      height, pixel_format 0 or 1. Null stands for a frame of 0 x 0 pixels.
 * @param params        settings for this conversion, or null
 * @return 0; TOVIX_EINVAL when the stream does not run, and for a record of the wrong size; TOVIX_EMODEL when
 *         the frame cannot be converted in this way, and from the first call for a model without matrices;
 *         TOVIX_ENOMEM when the conversion object cannot be made. After a failure `dst` is as it was.
 */
TOVIX_API int32_t tovix_convert_frame_to_rgb(_tovix* camera, uint8_t* dst, const uint8_t* src,
                                             const tovix_image_format* image_format,
                                             const tovix_conversion_params* params);

/**
 * Make the camera's conversion object, with the matrices of its model, unless it has one. Closing the camera frees it.
 * @return 0, also when there is one already; TOVIX_ENOMEM; TOVIX_EMODEL or TOVIX_EINVAL when the model has no
 *         matrices: the camera then has an object that uses the default one.
 */
TOVIX_API int32_t tz_usb_create_vorm(_tovix* camera);

/* ---- Properties ----------------------------------------------------------------------------------------------- */

/**
 * Set a property. Makes the camera's conversion object when it has none.
 *
 * @param value  integer value, see tovix_property_info. What is out of range goes to its keeper as it is: cameras limit
 *               it, and the temperature is limited to the camera's bounds here. The temperature is in the camera's own
 *               unit.
 * @param flags  new flag word of a property that the camera keeps; ignored for others
 * @return 0; for the demosaicing method and the correction matrix 1 when the value was taken and 0 when not;
 *         TOVIX_EINVAL for a property that cannot be set, or the temperature of a camera without control; TOVIX_EMODEL,
 *         TOVIX_ENOMEM from the conversion object; another negative value when a register transfer failed.
 */
TOVIX_API int32_t tovix_property_set(_tovix* camera, uint32_t property, int value, uint32_t flags);

/**
 * Read the value and the flag word of a property. Both are 0 after a failure, unless it was the arguments'.
 * @return 0; TOVIX_EINVAL for an unknown property or a null pointer; else as tovix_property_get_range()
 */
TOVIX_API int32_t tovix_property_get(_tovix* camera, uint32_t property, int* value, uint32_t* flags);

/**
 * Read the range, value and flag word of a property.
 *
 * Makes the camera's conversion object when it has none; unless that fails, all results are 0 after a failure. The
 * digital white balance and gains of a monochrome camera report their neutral value as their range.
 *
 * @param min, max  may be null
 * @param flags     TOVIX_PROPERTY_PRESENT: the camera has it. 0 for what the conversion object keeps.
 * @return 0; TOVIX_EINVAL for a null `value` or `flags` and for a property that is fixed or unknown; TOVIX_EMODEL,
 *         TOVIX_ENOMEM from the conversion object; another negative value when a register transfer failed.
 */
TOVIX_API int32_t tovix_property_get_range(_tovix* camera, uint32_t property, int* min, int* max, int* value,
                                           uint32_t* flags);

/**
 * Register a callback for notifications of a type. Nothing calls it in this version.
 * @param type  not 0: a slot whose type is 0 stays free
 * @return the slot, 0 to 3; TOVIX_ENOSLOT when all are taken
 */
TOVIX_API int32_t tovix_enable_callback_notification(_tovix* camera, uint32_t type, tovix_notification callback,
                                                     void* context);

/** Free a slot. @return 0; TOVIX_EINVAL for one that is free or does not exist */
TOVIX_API int32_t tovix_disable_callback_notification(_tovix* camera, int id);

/** Degrees Celsius to thousandths of a kelvin (0 degrees: 273.0), saturated at the bounds; not a number becomes 0. */
static inline void tovix_temp_to_register(float celsius, uint32_t* reg) {
    const float millikelvin = 1000.0f * (celsius + 273.0f);
    *reg = millikelvin >= 4294967296.0f ? UINT32_MAX : millikelvin > 0.0f ? (uint32_t)millikelvin : 0u;
}

/** And back. */
static inline void tovix_register_to_temp(int reg, float* celsius) {
    *celsius = (float)((double)(float)reg / 1000.0 - 273.0);
}

/* ---- Properties as floats: the interface of older applications ------------------------------------------------- */

/** Always 0: the library does not write it. */
extern TOVIX_API uint32_t TovixLastError;

/** As the tovix_property_ calls: true when they return 0 or more. */
TOVIX_API bool TovixPropertyGetRange(_tovix* camera, uint32_t property, int* min, int* max, int* value,
                                     uint32_t* flags);
TOVIX_API bool TovixPropertySet(_tovix* camera, uint32_t property, int value, uint32_t flags);
TOVIX_API bool TovixPropertyGet(_tovix* camera, uint32_t property, int* value, uint32_t* flags);

/**
 * Range and value of a property as floats.
 * @param flags  the flag word as tovix_property_get_range() gives it
 * @return 1; 0 for a failure, and for a null pointer: then no float is written
 */
TOVIX_API int32_t TovixPropertyRange(_tovix* camera, uint32_t property, float* min, float* max, float* value,
                                     uint32_t* flags);

/** Set a property. @param flags  the flag word, its low half in bits 16 to 31. @return 1; 0 for a failure */
TOVIX_API int32_t TovixSetProperty(_tovix* camera, uint32_t property, float value, int flags);

/** Read a property. @param flags  receives the low half of the flag word in bits 16 to 31. @return 1; 0 for a failure,
 * and then nothing is written */
TOVIX_API int32_t TovixGetProperty(_tovix* camera, uint32_t property, float* value, uint32_t* flags);

/**
 * The integer value of a property as a float, and back. What lies beyond an int becomes the nearest int, and what is not
 * a number 0; times are unsigned, so that from half of their range on they are negative as an int.
 */
TOVIX_API float ConvertPropToFloat(uint32_t property, int value);
TOVIX_API int ConvertPropToLong(uint32_t property, float value);

/** True for properties whose float falls as the integer rises, so that minimum and maximum change places. */
TOVIX_API bool PropMinMaxSwap(uint32_t property);

/* ---- Automatic adjustment -------------------------------------------------------------------------------------- */

/*
 * Each call measures a rectangle of a raw frame that the application has captured (tovix_get_video_frame_size() bytes
 * in the format in force) and changes settings once; whoever wants to converge calls again with a frame that was
 * exposed after that. x, y, width and height are in pixels of the frame.
 *
 * Common results: TOVIX_EINVAL for a rectangle that is empty or not inside the frame; TOVIX_ENOTSUP for a pixel format
 * that cannot be measured; TOVIX_EADJUST when a property cannot be read or written. A null frame is refused with
 * TOVIX_EFAIL.
 */

/**
 * Bring the mean of the rectangle to `target` by the exposure time, the gain, or the iris. A black rectangle asks for a
 * fifth more. Width and height should be even: pixels are counted in pairs, so that odd ones seem a little too bright.
 * @param target  wanted mean, 0 to 255; of 16-bit samples the most significant byte counts
 * @param unused  has no effect
 * @return 0, also when the wanted value lies out of the property's range: then the bound is set. No camera has an iris:
 *         TOVIX_EADJUST.
 */
TOVIX_API int32_t tovix_oneshot_autoexposure(_tovix* camera, int target, const uint8_t* frame, int x, int y, int width,
                                             int height, double unused);
TOVIX_API int32_t tovix_oneshot_autogain(_tovix* camera, int target, const uint8_t* frame, int x, int y, int width,
                                         int height);
TOVIX_API int32_t tovix_oneshot_autoiris(_tovix* camera, int target, const uint8_t* frame, int x, int y, int width,
                                         int height);

/**
 * Balance the colours by the camera's analogue gains, so that the rectangle, which shows a grey subject, becomes
 * neutral; the conversion object's white balance becomes 0. Its measures go to the standard output.
 *
 * The position and the size of the rectangle are even. Measured without a matrix and before the look-up table.
 *
 * @param red_ratio, blue_ratio  wanted red and blue by green; 1.0 for a neutral result. At least 0.01.
 * @return 0; TOVIX_ELIGHT when the rectangle is too dark (its mean is 16 or less) or too bright to tell
 */
TOVIX_API int32_t tovix_oneshot_autowhitebalance_ex(_tovix* camera, const uint8_t* frame, int x, int y, int width,
                                                    int height, float red_ratio, float blue_ratio);
/** The same with both ratios 1.0; so are those below. */
TOVIX_API int32_t tovix_oneshot_autowhitebalance(_tovix* camera, const uint8_t* frame, int x, int y, int width,
                                                 int height);

/**
 * Go nine tenths of the way to balanced colours: by the camera's analogue gains as far as they reach, and by the
 * digital gains of the conversion object.
 * @return 1 when something was changed; 0 when nothing had to be (all corrections are below 3 %), and when a property
 *         cannot be read or written; TOVIX_ELIGHT
 */
TOVIX_API int32_t tovix_whitebalance_step_ex(_tovix* camera, const uint8_t* frame, int x, int y, int width, int height,
                                             float red_ratio, float blue_ratio);
TOVIX_API int32_t tovix_whitebalance_step(_tovix* camera, const uint8_t* frame, int x, int y, int width, int height);

/**
 * Balance the colours by the conversion object alone; see CVorm::AdjustWhiteBalanceForRGBvalues().
 * Green is measured two 8-bit levels too bright, so that a bright subject becomes neutral within 3 %, not better.
 * @return 0; TOVIX_ELIGHT; TOVIX_EINVAL also when the selected matrix takes no white balance; TOVIX_EMODEL,
 *         TOVIX_ENOMEM when the conversion object cannot be made
 */
TOVIX_API int32_t tovix_digital_whitebalance_ex(_tovix* camera, const uint8_t* frame, int x, int y, int width,
                                                int height, float red_ratio, float blue_ratio);
TOVIX_API int32_t tovix_digital_whitebalance(_tovix* camera, const uint8_t* frame, int x, int y, int width, int height);

/**
 * Begin a search for the focus position at which the rectangle is sharpest. It is moved to at least 2 pixels inside the
 * frame. One search a camera.
 * @return 0; TOVIX_EINVAL also for a camera without a focus drive, which every camera is; TOVIX_EFAIL when the drive's
 *         range is empty
 */
TOVIX_API int32_t tovix_autofocus_start(_tovix* camera, int x, int y, int width, int height);

/**
 * Go on with the search, with a new frame. Moves the lens, or waits for it.
 * @return 0 while the search goes on, and from the call that ends it; TOVIX_EFAIL from then on when the lens is
 *         at rest, and when it cannot be moved, or its range is empty; TOVIX_ENOFOCUS when the search gives up; TOVIX_EINVAL when none was
 *         begun, or the frame format has changed since
 */
TOVIX_API int32_t tovix_autofocus_process(_tovix* camera, const uint8_t* frame);

/* ---- Transport and registers ---------------------------------------------------------------------------------- */

/**
 * One vendor control request on the camera's default pipe; blocks for at most 5 s without data.
 * @param length  bytes at `data`, 1 to 65535; a host may carry less in one request (Linux: 4096)
 * @return 0; TOVIX_EFAIL for missing or oversized arguments and, for the read, when fewer bytes arrived; else the
 *         platform's status. Nothing is retried.
 */
TOVIX_API int32_t tz_usb_control_write(_tovix* camera, const void* data, uint32_t length, uint8_t request,
                                       uint16_t value, uint16_t index);
TOVIX_API int32_t tz_usb_control_read(_tovix* camera, void* data, uint32_t length, uint8_t request, uint16_t value,
                                      uint16_t index);

/**
 * One bulk write. Blocks until it is done, or until at least 5 s pass without data.
 * @param pipe  n for the n-th endpoint of the interface's current setting
 * @return `length`, whether or not it succeeded; TOVIX_EFAIL for missing arguments or a halted pipe
 */
TOVIX_API int32_t tz_usb_bulk_write(_tovix* camera, uint8_t pipe, const void* data, uint32_t length);

/** The same for reading. @return bytes that arrived; TOVIX_EFAIL for missing arguments or a halted pipe */
TOVIX_API int32_t tz_usb_bulk_read(_tovix* camera, uint8_t pipe, void* data, uint32_t length);

/** Raw access from a register address on; the bytes are not interpreted. @return as the control transfer */
TOVIX_API int32_t tz_usb_write_tovix_bytes(_tovix* camera, uint32_t address, const void* data, uint32_t length);
TOVIX_API int32_t tz_usb_read_tovix_bytes(_tovix* camera, uint32_t address, void* data, uint32_t length);

/** `count` registers from `address` on, in one transfer. @return 0 or TOVIX_EFAIL */
TOVIX_API int32_t tz_usb_read_tovix_array(_tovix* camera, uint32_t address, uint32_t* values, int count);
TOVIX_API int32_t tz_usb_write_tovix_array(_tovix* camera, uint32_t address, const uint32_t* values, int count);

/** One register. @return 0 or TOVIX_EFAIL */
TOVIX_API int32_t tz_usb_read_tovix_u32(_tovix* camera, uint32_t address, uint32_t* value);
TOVIX_API int32_t tz_usb_write_tovix_u32(_tovix* camera, uint32_t address, uint32_t value);

/** One register that holds a pair. @return 0 or TOVIX_EFAIL */
TOVIX_API int32_t tz_usb_read_tovix_two_u16(_tovix* camera, uint32_t address, uint16_t* first, uint16_t* second);
TOVIX_API int32_t tz_usb_write_tovix_two_u16(_tovix* camera, uint32_t address, uint16_t first, uint16_t second);

/** Reload the list of data rates from the camera and set the model's default rate. */
TOVIX_API int32_t tz_usb_reload_kps(_tovix* camera);

/** The first row of the camera table for a product ID (bit 15 is ignored) and release (0xFFFF: any), or null. */
TOVIX_API const camera_id* tz_camera_find(uint16_t product_id, uint16_t release);

#ifdef __cplusplus
}
#endif

#endif
