// SPDX-License-Identifier: Apache-2.0
// The conversion object: turns raw frames into colour images. C++.
//
// A conversion takes four things from here: how the image is flipped, which demosaic method fills in the
// missing colours, a look-up table over the raw samples (gamma, contrast and brightness, or the application's
// own), and a colour matrix over the finished pixels (correction, hue, white balance, gain and saturation).
//
//   raw samples --table--> samples --demosaic method--> pixels --colour matrix--> image
//
// Results are TOVIX_* values of tovixapi.h unless a call says otherwise. A result pointer may be null where
// nothing else is said: that value is not wanted. Records and tables that a call works on are not checked.
// No call throws, except the two helpers that fill a CMatrix, which throw as CMatrix does.
//
// Threads: one object is used by one thread at a time, conversions included. Different objects share nothing,
// so a second thread may convert with its own.
#pragma once

#include <stdint.h>

#include "tovixapi/export.h"

class CMatrix;

/** How a raw frame is laid out. Flags: 0 or not 0 is all that they say. */
struct _vorm_format {
    uint64_t width;           ///< pixels a row; even
    uint64_t height;          ///< rows; even
    uint32_t first_row_blue;  ///< the first row holds blue and green, not red and green
    uint32_t first_green;     ///< the first sample of the first row is green
    uint32_t mono;            ///< no colour filter: samples are grey, and no matrix is applied
    uint32_t interlaced;      ///< the even rows of the picture stand first, then the odd ones
    uint32_t rows_reversed;   ///< reverses the order of rows once more, on top of flip_y
    uint32_t sample_kind;     ///< 0: 8 bits; 16 bits with the most significant byte 1: first, 2: last
};

/** A look-up table over 8-bit samples, and the curve that it was made of. */
struct _lut8_struct {
    unsigned char table[256];  ///< output for each input
    int64_t gamma;             ///< hundredths, 100 is linear; of each of these only the low 32 bits count
    int64_t contrast;          ///< percent, 100 is neutral
    int64_t brightness;        ///< adds brightness * 256 / 10000 levels before contrast; 0 is neutral
};
static_assert(sizeof(_lut8_struct) == 280, "applications pass the record as bytes");

/**
 * Everything that a conversion takes from the object besides the frame's layout.
 *
 * A copy shares both tables with its origin, and its `matrix` still points to the origin's: aim it at the
 * copy's own `matrix_storage` before building a matrix there.
 */
struct _vorm_settings {
    uint32_t correction_matrix;  ///< TOVIX_MATRIX_*; 0 applies no matrix
    uint32_t demosaic_method;    ///< TOVIX_DEMOSAIC_*
    int32_t flip_x;              ///< not 0: mirror each row
    int32_t flip_y;              ///< not 0: last row first
    double saturation_u;         ///< stretch of the blue-yellow axis, 1.0 is neutral
    double saturation_v;         ///< stretch of the red-cyan axis, 1.0 is neutral
    double hue;                  ///< rotation of the colours, degrees
    double white_balance_u;      ///< twice the blue-yellow offset of a grey of luminance 1; 0.0 is neutral
    double white_balance_v;      ///< the same for red-cyan
    double gain;                 ///< of the luminance, 1.0 is neutral
    short custom_matrix[12];     ///< the application's own: 3 rows of 4, 4096 = 1.0
    _lut8_struct* lut;           ///< the 8-bit table, or null
    uint64_t lut_size;           ///< bytes of it in force: 0, 256 (the table), 280 (with its curve)
    uint32_t matrix_stale;       ///< `matrix` no longer matches the settings
    alignas(16) short matrix_storage[12];
    short* matrix;          ///< in force: rows of weights of red, green, blue and byte 3; 4096 = 1.0
    unsigned short* lut16;  ///< the table for 16-bit frames: 65536 entries, or null
};

/** The conversion object. A camera's handle owns one, made by tz_usb_create_vorm(); others need no camera. */
class TOVIX_API CVorm {
  public:
    /** 8-bit colour frames, nearest neighbour, the model's first matrix, everything else neutral. */
    CVorm();
    ~CVorm();
    CVorm(CVorm const&) = delete;
    CVorm& operator=(CVorm const&) = delete;

    // ---- Settings. Setters that touch colours rebuild the matrix at once; should memory run out in that,
    // they keep the value, leave the matrix stale and return TOVIX_ENOMEM. Everything else here returns 0.

    int GetFlipping(int* x, int* y);
    int SetFlipping(int x, int y);
    int GetSaturation(double* u, double* v);
    int SetSaturation(double u, double v);
    /** Degrees. */
    int GetHue(double* hue);
    int SetHue(double hue);
    int GetGain(double* gain);
    int SetGain(double gain);
    int GetWhiteBalance(double* u, double* v);
    int SetWhiteBalance(double u, double v);
    /** 12 values, 4096 = 1.0; in force while the selector is TOVIX_MATRIX_CUSTOM or _CUSTOM_ONLY. A null
     * input is refused with TOVIX_EINVAL. */
    int GetCustomMatrix(short* out);
    int CustomCorrectionMatrixSetup(short* in);

    /** The setters return 1, or 0 for a value that the Validate functions below do not accept. */
    int DemosaicMethodGet(unsigned int* method);
    int DemosaicMethodSet(unsigned int method);
    int CorrectionMatrixGet(unsigned int* selector);
    int CorrectionMatrixSet(unsigned int selector);

    // ---- Look-up table. `channel` must be 15 (all channels) to set anything: TOVIX_ENOTSUP otherwise.

    /** The curve in force, neutral values when the table was not made of one. TOVIX_EINVAL for a null
     * pointer. */
    int GetGamma(int* gamma, unsigned int channel);
    int GetContrast(int* contrast, unsigned int channel);
    int GetBrightness(int* brightness, unsigned int channel);
    /** Change one of the three and rebuild the table. A table of the application's own gives way to a neutral
     * curve. Any value is safe; a gamma of 0 or less makes the table of gamma 1.0. TOVIX_ENOMEM when there is no room.
     * */
    int SetGamma(int gamma, unsigned int channel);
    int SetContrast(int contrast, unsigned int channel);
    int SetBrightness(int brightness, unsigned int channel);

    /**
     * Install a table: 256 bytes, or the 280 bytes of a _lut8_struct, whose table is used as given. More
     * bytes than 280 are ignored; 0 switches the table off.
     * @return 0; TOVIX_EINVAL for another size or null data; TOVIX_ENOMEM
     */
    int SetupLUT(unsigned char const* data, unsigned int size, unsigned int channel);
    /**
     * Copy the table in force, at most *size bytes of it, and store its size in *size. With *size 0 only the
     * size is stored, and the result is 84.
     * @return 0 or 84; TOVIX_EINVAL for a null pointer that is needed
     */
    int GetLUT(unsigned char* out, unsigned int* size, unsigned int channel);
    /**
     * Make or free settings->lut16 so that it matches settings->lut.
     * @param natural_order  not 0: indexed by the sample; 0: by the sample with its bytes swapped
     * @return 1; 0 when memory ran out
     */
    int BuildLut16WhenNotRunning(_vorm_settings* settings, int natural_order);

    // ---- Colour matrix

    /**
     * Store the matrix that selector `matrix_id` stands for on this camera.
     * @param coefficients  nine, 4096 = 1.0, the last one first: rows and weights go from blue to red
     * @return 0; TOVIX_EINVAL for null, id 0 or an id above 15; TOVIX_ENOMEM, and then there is none
     */
    int SpecifyMatrix(unsigned int matrix_id, short* coefficients);
    /**
     * Build settings->matrix from the other settings; it is left alone while the selector is 0. Weights lie
     * between -8.0 and 7.999; one that is not a number is 0. Selectors that name no matrix get the default one.
     * @return 1; TOVIX_ENOMEM
     */
    int BuildMatrix(_vorm_settings* settings);
    /** The same for the object's own settings. They are no longer stale after it, unless memory ran out. */
    void BuildCurrentMatrix();
    /** The 12 weights in force, built first when stale; 4096 on the diagonal before any was built.
     * @return 0; TOVIX_EINVAL for null; TOVIX_ENOMEM */
    int GetCurrentMatrix(short* out);

    // ---- White balance

    /** Gains of the three channels as white balance and luminance gain.
     * @return 1; 0, and nothing is written, when a saturation is 0.05 or less */
    int ConvertDigitalGainsColorToWBGainY(double sat_u, double sat_v, double red, double green, double blue,
                                          double* wb_u, double* wb_v, double* gain_y);
    /** Set white balance and gain from gains of the three channels.
     * @return 0; TOVIX_EMODEL, and nothing changes, when a saturation is 0.05 or less; TOVIX_ENOMEM */
    int SetDigitalColorGains(double red, double green, double blue);
    /** The gains of the three channels that white balance, gain and saturation amount to.
     * @return 0; TOVIX_ENOMEM */
    int GetDigitalColorGains(double* red, double* green, double* blue);
    /**
     * Choose white balance and, where a channel of white would end below 1.0, gain, so that a grey target of
     * which this average was measured becomes neutral. The measure is of frames without a matrix.
     * @return 0; TOVIX_EINVAL, and nothing changes, for selectors 0 and TOVIX_MATRIX_CUSTOM_ONLY and for a
     * colour without a positive, finite luminance; TOVIX_ENOMEM
     */
    int AdjustWhiteBalanceForRGBvalues(double red, double green, double blue);

    // ---- Conversion

    /**
     * Convert a frame. The settings of the object stay as they are.
     *
     * @param dst  receives `height` rows of `width` pixels. Where frames that are not interlaced become 8- or
     *             24-bit grey (monochrome ones, and others with TOVIX_DEMOSAIC_NONE), rows are padded to a
     *             multiple of 4 bytes; padding is not written.
     * @param src  the frame: `height` rows of `width` samples, unpadded
     * @param bits 24: red, green, blue. 32: a fourth byte, which most methods leave alone. 48, for 16-bit
     *             frames: three words in the machine's order, at an even address. 8, for monochrome frames:
     *             grey. Everything else: 24.
     * @param image_format  a tovix_image_format; null: a frame of 0 x 0 pixels, which converts to nothing
     * @param params        a tovix_conversion_params that overrides settings for this conversion, or null
     * @return 0; TOVIX_EINVAL when a record has the wrong size; TOVIX_EMODEL for everything else, and then
     *         `dst` is as it was: odd sizes, unknown pixel formats, methods without a kernel for such a
     * frame, matrix selectors above 16, numbers that are not finite, colour gains at a saturation of 0.05 or
     *         less, null buffers, no memory
     */
    int ConvertToRgb(unsigned char* dst, unsigned char const* src, unsigned int bits, void const* image_format,
                     void const* params);
    /** The last step of it: one kernel, then settings->matrix unless the selector is 0.
     * @return 1; 0, and `dst` is as it was, for a combination without a kernel, or a frame that cannot be */
    int ConvertBayerToRgb(unsigned char* dst, unsigned char const* src, unsigned int bits,
                          _vorm_format const* frame_format, _vorm_settings const* frame_settings);

    // Look at these, and copy them for ConvertBayerToRgb; change them through the calls above.
    _vorm_format format;        ///< all zero
    _vorm_settings settings;    ///< in force
    short* model_matrices[16];  ///< by matrix_id: 3 rows of 4 weights, 4096 = 1.0, or null. 0 is never used

  private:
    struct KeptTable;
    /** The table of the latest conversion of a 16-bit frame, and the upper bytes of its entries; made again when the 8-bit
     * table has changed. Null before. */
    KeptTable* kept_table = nullptr;
    unsigned short* table_for(_vorm_settings const& frame_settings, int natural_order);
    unsigned char const* top_bytes_of(unsigned short const* table) const;
    void forget_table();
};

/** True for 0, 1, 2, 8 and 9. Conversions accept also TOVIX_DEMOSAIC_ZURNO, in their parameters. */
TOVIX_API bool ValidateDemosaicingMethod(unsigned int method);
/** True for 0 to 16. */
TOVIX_API bool ValidateCorrectionMatrix(unsigned int selector);

/** Make block->table of the block's gamma, contrast and brightness. */
TOVIX_API void MakeLut8(_lut8_struct* block);
/**
 * Make the 65536 entries of a table for 16-bit frames: of the block's curve when `size` is 280, else by stretching its
 * 256-byte table.
 * @param natural_order  not 0: indexed by the sample; 0: by the sample with its bytes swapped
 */
TOVIX_API void MakeLut16(unsigned short* out, _lut8_struct const* in, unsigned int size, int natural_order);

/** The matrix of selectors 1 to 13 where the camera's model has none: rows and weights from red to blue. */
extern TOVIX_API double const RgbAllButNoneValues[9];
/** An identity of 3 rows and 4 columns. */
TOVIX_API void MakeIdentity3x4(CMatrix& matrix);
/** 12 fixed-point weights, 4096 = 1.0, as a matrix of 3 rows and 4 columns. */
TOVIX_API void ConvertMatrixShortToDouble3x4(CMatrix* matrix, short* weights);

/**
 * Apply a colour matrix to `count` pixels in place. Each channel becomes the weighted sum of the pixel's
 * channels, clamped to the range of the channel and rounded down. Sums do not wrap. Pixels of 3 bytes; of 4
 * bytes, the last of which is weighted by the fourth column and not written; of 3 words.
 */
TOVIX_API void MatrixPostProcess4096(short const* matrix, unsigned char* pixels, unsigned long count);
TOVIX_API void MatrixPostProcess4096to32(short const* matrix, unsigned char* pixels, unsigned long count);
TOVIX_API void MatrixPostProcess16_4096(short const* matrix, unsigned short* pixels, unsigned long count);
