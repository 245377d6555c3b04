// SPDX-License-Identifier: Apache-2.0
// The exported kernels: the shapes of their parameter lists, then a table with one line a name.
#include <tovixapi/kernels.h>

#include "bilinear.h"
#include "first_pass.h"
#include "nearest.h"
#include "quelt.h"
#include "rows.h"
#include "zurno.h"

using namespace tovix::color;
using Byte = unsigned char;
using Word = unsigned short;

// clang-format off

// ---------------------------------------------------------------------------------------------------------
// Shapes. The last argument is the template that does the work; it gets what the parameters amount to.

#define ORIGIN Site{redRowFirst != 0, greenFirst != 0}
#define PLACE(fields) Placement{{width, height}, flipX != 0, topDown != 0, fields}

#define GREY_BYTES(Name, kFields, ...)                                                                      \
    void Name(Byte* dst, Byte const* src, unsigned int width, unsigned int height,                          \
              int flipX, int topDown, Byte const* lut) {                                                    \
        __VA_ARGS__(dst, ByteFrame{src, lut}, PLACE(kFields));                                              \
    }

#define GREY_WORDS(Name, kFields, ...)                                                                      \
    void Name(Byte* dst, Word const* src, unsigned int width, unsigned int height,                          \
              int flipX, int topDown, int msbFirst, Word const* lut) {                                      \
        __VA_ARGS__(dst, WordFrame{src, msbFirst != 0, lut}, PLACE(kFields));                               \
    }

#define GREY_FIELD_BYTES(Name, ...)                                                                         \
    void Name(Byte* dst, Byte const* src, unsigned int width, unsigned int height,                          \
              int flipX, int topDown, int interlaced, Byte const* lut) {                                    \
        __VA_ARGS__(dst, ByteFrame{src, lut}, PLACE(interlaced != 0));                                      \
    }

#define GREY_FIELD_WORDS(Name, Channel, ...)                                                                \
    void Name(Channel* dst, Word const* src, unsigned int width, unsigned int height,                       \
              int flipX, int topDown, int interlaced, int msbFirst, Word const* lut) {                      \
        __VA_ARGS__(dst, WordFrame{src, msbFirst != 0, lut}, PLACE(interlaced != 0));                       \
    }

#define MOSAIC_BYTES(Name, ...)                                                                             \
    void Name(Byte* dst, Byte const* src, unsigned int width, unsigned int height,                          \
              int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, Byte const* lut) {   \
        __VA_ARGS__(dst, ByteFrame{src, lut}, PLACE(interlaced != 0), ORIGIN);                              \
    }

#define MOSAIC_WORDS(Name, Channel, ...)                                                                    \
    void Name(Channel* dst, Word const* src, unsigned int width, unsigned int height,                       \
              int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,                      \
              int msbFirst, Word const* lut) {                                                              \
        __VA_ARGS__(dst, WordFrame{src, msbFirst != 0, lut}, PLACE(interlaced != 0), ORIGIN);               \
    }

#define IN_PLACE(Name, Channel, ...)                                                                        \
    void Name(Channel* image, unsigned int width, unsigned int height,                                      \
              int redRowFirst, int greenFirst) {                                                            \
        __VA_ARGS__(image, Size{width, height}, ORIGIN);                                                    \
    }

#define DIRECT(Name, kStep, kMirrored, ...)                                                                 \
    void Name(Byte* dst, Byte const* src, unsigned int width, unsigned int height,                          \
              int redRowFirst, int greenFirst, int topDown) {                                               \
        constexpr int flipX = kMirrored;                                                                    \
        __VA_ARGS__(dst, TopBytes<kStep>{src}, PLACE(false), ORIGIN);                                       \
    }

// With a table in two passes, without one directly.
#define SELECT_BYTES(Name)                                                                                  \
    void Name(Byte* dst, Byte const* src, unsigned int width, unsigned int height,                          \
              int redRowFirst, int greenFirst, int flipX, int topDown, Byte const* lut) {                   \
        if (lut != nullptr)                                                                                 \
            Name##InPlace(dst, src, width, height, redRowFirst, greenFirst, flipX, topDown, 0, lut);        \
        else if (flipX != 0)                                                                                \
            Name##FlipX(dst, src, width, height, redRowFirst, greenFirst, topDown);                         \
        else                                                                                                \
            Name(dst, src, width, height, redRowFirst, greenFirst, topDown);                                \
    }

#define SELECT_WORDS(Name)                                                                                  \
    void Name(Byte* dst, Word const* src, unsigned int width, unsigned int height,                          \
              int redRowFirst, int greenFirst, int flipX, int topDown, int msbFirst, Word const* lut) {     \
        Byte const* const top = reinterpret_cast<Byte const*>(src) + (msbFirst != 0 ? 0 : 1);               \
        if (lut != nullptr)                                                                                 \
            Name##InPlace(dst, src, width, height, redRowFirst, greenFirst, flipX, topDown, 0, msbFirst,    \
                          lut);                                                                             \
        else if (flipX != 0)                                                                                \
            Name##FlipX(dst, top, width, height, redRowFirst, greenFirst, topDown);                         \
        else                                                                                                \
            Name(dst, top, width, height, redRowFirst, greenFirst, topDown);                                \
    }

#define FLIP(Name, Channel, Pixel)                                                                          \
    void Name(Channel* image, unsigned int width, unsigned int height, int flipX, int flipY) {              \
        flip_around<Pixel>(image, Size{width, height}, flipX != 0, flipY != 0);                             \
    }

// ---------------------------------------------------------------------------------------------------------

// No interpolation. Grey needs no second pass: a pixel has nothing but its own sample.
GREY_BYTES(NoneMove,   false, grey_copy<Rgb24, 3, 4>)
GREY_BYTES(NoneMove32, false, grey_copy<Rgb32, 4, 1>)
GREY_WORDS(NoneMove16to8,   false, grey_copy<Rgb24, 3, 4>)
GREY_WORDS(NoneMove16to832, false, grey_copy<Rgb32, 3, 1>)
GREY_BYTES(MonoToMonoMove,         false, grey_copy<Grey8, 1, 4>)
GREY_BYTES(MonoToMonoMoveDeinterl, true,  grey_copy<Grey8, 1, 1>)
GREY_WORDS(MonoToMonoMove16to8,         false, grey_copy<Grey8, 1, 4>)
GREY_WORDS(MonoToMonoMove16to8Deinterl, true,  grey_copy<Grey8, 1, 1>)
GREY_FIELD_BYTES(NoneMoveInPlace,   grey_copy<Rgb24, 3, 1>)
GREY_FIELD_BYTES(NoneMove32InPlace, grey_copy<Rgb32, 3, 1>)
GREY_FIELD_WORDS(NoneMove16to8InPlace,   Byte, grey_copy<Rgb24, 3, 1>)
GREY_FIELD_WORDS(NoneMove16to832InPlace, Byte, grey_copy<Rgb32, 3, 1>)
GREY_FIELD_WORDS(NoneMove16InPlace,      Word, grey_copy<Rgb48, 3, 1>)

// First passes.
MOSAIC_BYTES(FirstCopy,   first_pass<Rgb24>)
MOSAIC_BYTES(FirstCopy32, first_pass<Rgb32>)
MOSAIC_WORDS(FirstCopy16to8,   Byte, first_pass<Rgb24>)
MOSAIC_WORDS(FirstCopy16to832, Byte, first_pass<Rgb32>)
MOSAIC_WORDS(FirstCopy16,      Word, first_pass<Rgb48>)
MOSAIC_BYTES(FirstCopyFourColors32, first_pass<Rgb32, &Site::plane>)

// Second passes.
IN_PLACE(SecondNoneMove,              Byte, second_pass<Rgb24, Grey>)
IN_PLACE(SecondNoneMove32,            Byte, second_pass<Rgb32, Grey>)
IN_PLACE(SecondNoneMove16,            Word, second_pass<Rgb48, Grey>)
IN_PLACE(SecondNearestNeighbor,       Byte, second_pass<Rgb24, Nearest>)
IN_PLACE(SecondNearestNeighbor32,     Byte, second_pass<Rgb32, Nearest>)
IN_PLACE(SecondNearestNeighbor16,     Word, second_pass<Rgb48, Nearest>)
IN_PLACE(SecondEdgeDetectMove,        Byte, second_pass<Rgb24, EdgeDirected>)
IN_PLACE(SecondEdgeDetectMove32,      Byte, second_pass<Rgb32, EdgeDirected>)
IN_PLACE(SecondEdgeDetectMove16,      Word, second_pass<Rgb48, EdgeDirected>)
IN_PLACE(SecondQueltMove,             Byte, second_pass<Rgb24, Quelt>)
IN_PLACE(SecondQueltMove32,           Byte, second_pass<Rgb32, Quelt>)
IN_PLACE(SecondQueltMove16,           Word, second_pass<Rgb48, Quelt>)
IN_PLACE(SecondFourColorsInterMove32, Byte, second_pass<Rgb32, FourColour>)

// Both.
MOSAIC_BYTES(NearestNeighborInPlace,   two_pass<Rgb24, Nearest>)
MOSAIC_BYTES(NearestNeighbor32InPlace, two_pass<Rgb32, Nearest>)
MOSAIC_WORDS(NearestNeighbor16to8InPlace,   Byte, two_pass<Rgb24, Nearest>)
MOSAIC_WORDS(NearestNeighbor16to832InPlace, Byte, two_pass<Rgb32, Nearest>)
MOSAIC_WORDS(NearestNeighbor16InPlace,      Word, two_pass<Rgb48, Nearest>)
MOSAIC_BYTES(EdgeDetectMoveInPlace,   two_pass<Rgb24, EdgeDirected>)
MOSAIC_BYTES(EdgeDetectMove32InPlace, two_pass<Rgb32, EdgeDirected>)
MOSAIC_WORDS(EdgeDetectMove16to8InPlace,   Byte, two_pass<Rgb24, EdgeDirected>)
MOSAIC_WORDS(EdgeDetectMove16to832InPlace, Byte, two_pass<Rgb32, EdgeDirected>)
MOSAIC_WORDS(EdgeDetectMove16InPlace,      Word, two_pass<Rgb48, EdgeDirected>)
MOSAIC_BYTES(QueltMoveInPlace,   two_pass<Rgb24, Quelt>)
MOSAIC_BYTES(QueltMove32InPlace, two_pass<Rgb32, Quelt>)
MOSAIC_WORDS(QueltMove16to8InPlace,   Byte, two_pass<Rgb24, Quelt>)
MOSAIC_WORDS(QueltMove16to832InPlace, Byte, two_pass<Rgb32, Quelt>)
MOSAIC_WORDS(QueltMove16InPlace,      Word, two_pass<Rgb48, Quelt>)
MOSAIC_BYTES(FourColorsInterMove32InPlace, two_pass<Rgb32, FourColour, &Site::plane>)

// One pass, and the choice between one and two.
DIRECT(NearestNeighbor,             1, false, direct<Rgb24, Nearest>)
DIRECT(NearestNeighborFlipX,        1, true,  direct<Rgb24, Nearest>)
DIRECT(NearestNeighbor32,           1, false, direct<Rgb32, Nearest>)
DIRECT(NearestNeighbor32FlipX,      1, true,  direct<Rgb32, Nearest>)
DIRECT(NearestNeighbor16to8,        2, false, direct<Rgb24, Nearest>)
DIRECT(NearestNeighbor16to8FlipX,   2, true,  direct<Rgb24, Nearest>)
DIRECT(NearestNeighbor16to832,      2, false, direct<Rgb32, Nearest>)
DIRECT(NearestNeighbor16to832FlipX, 2, true,  direct<Rgb32, Nearest>)
DIRECT(EdgeDetectMove,              1, false, direct<Rgb24, EdgeDirectedRawBytes>)
DIRECT(EdgeDetectMoveFlipX,         1, true,  direct<Rgb24, EdgeDirectedRawBytes>)
DIRECT(EdgeDetectMove32,            1, false, direct<Rgb32, EdgeDirectedRawBytes>)
DIRECT(EdgeDetectMove32FlipX,       1, true,  direct<Rgb32, EdgeDirectedRawBytes>)
DIRECT(EdgeDetectMove16to8,         2, false, direct<Rgb24, EdgeDirected>)
DIRECT(EdgeDetectMove16to8FlipX,    2, true,  direct<Rgb24, EdgeDirected>)
DIRECT(EdgeDetectMove16to832,       2, false, direct<Rgb32, EdgeDirected>)
DIRECT(EdgeDetectMove16to832FlipX,  2, true,  direct<Rgb32, EdgeDirected>)
SELECT_BYTES(NearestNeighbor)
SELECT_BYTES(NearestNeighbor32)
SELECT_WORDS(NearestNeighbor16to8)
SELECT_WORDS(NearestNeighbor16to832)
SELECT_BYTES(EdgeDetectMove)
SELECT_BYTES(EdgeDetectMove32)
SELECT_WORDS(EdgeDetectMove16to8)
SELECT_WORDS(EdgeDetectMove16to832)

// Zurno.
MOSAIC_BYTES(ZurnoMove,   zurno<Rgb24>)
MOSAIC_BYTES(ZurnoMove32, zurno<Rgb32>)
MOSAIC_WORDS(ZurnoMove16to8,   Byte, zurno<Rgb24>)
MOSAIC_WORDS(ZurnoMove16to832, Byte, zurno<Rgb32>)
MOSAIC_WORDS(ZurnoMove16,      Word, zurno<Rgb48>)
IN_PLACE(ZurnoMoveJob,   Byte, zurno_job<Rgb24>)
IN_PLACE(ZurnoMoveJob32, Byte, zurno_job<Rgb32>)
IN_PLACE(ZurnoMoveJob,   Word, zurno_job<Rgb48>)
FLIP(FlipBgrAround,   Byte, Rgb24)
FLIP(FlipBgrAround32, Byte, Rgb32)
FLIP(FlipBgrAround,   Word, Rgb48)
