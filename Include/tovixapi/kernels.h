// SPDX-License-Identifier: Apache-2.0
// The demosaic kernels: each turns one raw frame into one image, in a buffer of the caller. C++.
//
// What holds for all of them:
//
//   Sizes    `width` and `height` count samples of the frame and pixels of the image: even, at least 2. A
//            kernel that is called with any other size does nothing.
//   Frame    `src`: `height` rows of `width` samples, no padding. unsigned char: 8 bits a sample. unsigned
//            short: 16 bits, aligned to the most significant bit; in memory the most significant byte comes
//            first where `msbFirst` is set, last where it is 0. `interlaced`: the even rows of the picture
//            stand first, then the odd ones.
//   Mosaic   `redRowFirst`: the first row holds red and green, else blue and green. `greenFirst`: its first
//            sample is green. Both 0 is B G / G R; redRowFirst alone is R G / G B.
//   Image    `dst`: channels in the order red, green, blue. 24-bit: 3 bytes a pixel. 32-bit: 4 bytes, the
//            last of which keeps what the buffer held. 48-bit: 3 words in the machine's byte order. Rows are
//            not padded. Exceptions stand with the kernels; padding is never written.
//   Flips    `topDown`: the picture's first row is stored first; 0: last. `flipX`: its first column is
//            stored last.
//   Table    `lut`: maps every sample before it is used; null for none. 256 bytes for 8-bit frames. 65536
//            words for 16-bit frames, indexed by the word as it stands in memory, least significant byte
//            first, so the table is made for the frame's byte order; 8-bit output takes the most significant
//            byte of the entry. Without a table it takes that of the sample, and 48-bit output the sample.
//   Flags    0 or not 0 is all that they say.
//   Buffers  stay the caller's, do not overlap, and are not checked. Words are aligned as words.
//   Threads  any number at once on different images: no state is kept, nothing is allocated.
//
// A plain name reads bytes and writes 24 bits, 32 reads bytes and writes 32 bits; 16to8 reads words and
// writes 24 bits, 16to832 reads words and writes 32 bits, 16 reads words and writes 48 bits.
#pragma once

#include <tovixapi/export.h>

// --------------------------------------------------------------------------------------------------------- No
// interpolation

/** Each sample as a grey pixel. The 24-bit forms pad rows to a multiple of 4 bytes; NoneMove32 writes the
 * value into all four bytes. */
TOVIX_API void NoneMove(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                        int flipX, int topDown, unsigned char const* lut);
TOVIX_API void NoneMove32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                          int flipX, int topDown, unsigned char const* lut);
TOVIX_API void NoneMove16to8(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                             int flipX, int topDown, int msbFirst, unsigned short const* lut);
TOVIX_API void NoneMove16to832(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                               int flipX, int topDown, int msbFirst, unsigned short const* lut);

/** First passes: each sample goes to the one channel of its pixel that its site of the mosaic has; the other
 * channels of the pixel are not written. A second pass fills them. */
TOVIX_API void FirstCopy(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                         int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                         unsigned char const* lut);
TOVIX_API void FirstCopy32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                           int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                           unsigned char const* lut);
TOVIX_API void FirstCopy16to8(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                              int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                              unsigned short const* lut);
TOVIX_API void FirstCopy16to832(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                                int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                                unsigned short const* lut);
TOVIX_API void FirstCopy16(unsigned short* dst, unsigned short const* src, unsigned int width, unsigned int height,
                           int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                           unsigned short const* lut);

/** Second passes fill in place what a first pass left open. They see the image in memory order, so
 * `redRowFirst` and `greenFirst` are those of the row and pixel stored first: redRowFirst is inverted when
 * topDown was 0, and greenFirst once for flipX and once for topDown 0. This one spreads each pixel's own sample over
 * its three channels. */
TOVIX_API void SecondNoneMove(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                              int greenFirst);
TOVIX_API void SecondNoneMove32(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                int greenFirst);
TOVIX_API void SecondNoneMove16(unsigned short* image, unsigned int width, unsigned int height, int redRowFirst,
                                int greenFirst);

/** First pass and grey second pass: the image of NoneMove, rows unpadded. For interlaced frames and 48-bit
 * output. */
TOVIX_API void NoneMoveInPlace(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                               int flipX, int topDown, int interlaced, unsigned char const* lut);
TOVIX_API void NoneMove32InPlace(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                 int flipX, int topDown, int interlaced, unsigned char const* lut);
TOVIX_API void NoneMove16to8InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                    unsigned int height, int flipX, int topDown, int interlaced, int msbFirst,
                                    unsigned short const* lut);
TOVIX_API void NoneMove16to832InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                      unsigned int height, int flipX, int topDown, int interlaced, int msbFirst,
                                      unsigned short const* lut);
TOVIX_API void NoneMove16InPlace(unsigned short* dst, unsigned short const* src, unsigned int width,
                                 unsigned int height, int flipX, int topDown, int interlaced, int msbFirst,
                                 unsigned short const* lut);

/** Each sample as a grey byte, rows padded to a multiple of 4 bytes. */
TOVIX_API void MonoToMonoMove(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                              int flipX, int topDown, unsigned char const* lut);
TOVIX_API void MonoToMonoMove16to8(unsigned char* dst, unsigned short const* src, unsigned int width,
                                   unsigned int height, int flipX, int topDown, int msbFirst,
                                   unsigned short const* lut);

/** The same for interlaced frames, rows unpadded. */
TOVIX_API void MonoToMonoMoveDeinterl(unsigned char* dst, unsigned char const* src, unsigned int width,
                                      unsigned int height, int flipX, int topDown, unsigned char const* lut);
TOVIX_API void MonoToMonoMove16to8Deinterl(unsigned char* dst, unsigned short const* src, unsigned int width,
                                           unsigned int height, int flipX, int topDown, int msbFirst,
                                           unsigned short const* lut);

// ---------------------------------------------------------------------------------------------------------
// Nearest neighbour: each missing colour is a copy of a neighbouring sample. The fastest, with jagged edges.

/** One pass, progressive frames, no table. `src` of the 16-bit forms points to the most significant byte of
 * the first sample, and every second byte is read from there. FlipX forms mirror what they store: the neighbours are
 * the frame's. */
TOVIX_API void NearestNeighbor(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                               int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighborFlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                    unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                 int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor32FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                      unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor16to8(unsigned char* dst, unsigned char const* src, unsigned int width,
                                    unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor16to8FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                         unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor16to832(unsigned char* dst, unsigned char const* src, unsigned int width,
                                      unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void NearestNeighbor16to832FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                           unsigned int height, int redRowFirst, int greenFirst, int topDown);

/** Second passes, in memory order: the neighbours are those of the stored image. */
TOVIX_API void SecondNearestNeighbor(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                     int greenFirst);
TOVIX_API void SecondNearestNeighbor32(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                       int greenFirst);
TOVIX_API void SecondNearestNeighbor16(unsigned short* image, unsigned int width, unsigned int height, int redRowFirst,
                                       int greenFirst);

/** First pass and second pass: interlaced frames, tables, 48-bit output. */
TOVIX_API void NearestNeighborInPlace(unsigned char* dst, unsigned char const* src, unsigned int width,
                                      unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                      int interlaced, unsigned char const* lut);
TOVIX_API void NearestNeighbor32InPlace(unsigned char* dst, unsigned char const* src, unsigned int width,
                                        unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                        int interlaced, unsigned char const* lut);
TOVIX_API void NearestNeighbor16to8InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                           unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                           int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void NearestNeighbor16to832InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                             unsigned int height, int redRowFirst, int greenFirst, int flipX,
                                             int topDown, int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void NearestNeighbor16InPlace(unsigned short* dst, unsigned short const* src, unsigned int width,
                                        unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                        int interlaced, int msbFirst, unsigned short const* lut);

/** Progressive frames: the form in two passes when there is a table, the direct one otherwise. */
TOVIX_API void NearestNeighbor(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                               int redRowFirst, int greenFirst, int flipX, int topDown, unsigned char const* lut);
TOVIX_API void NearestNeighbor32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                 int redRowFirst, int greenFirst, int flipX, int topDown, unsigned char const* lut);
TOVIX_API void NearestNeighbor16to8(unsigned char* dst, unsigned short const* src, unsigned int width,
                                    unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                    int msbFirst, unsigned short const* lut);
TOVIX_API void NearestNeighbor16to832(unsigned char* dst, unsigned short const* src, unsigned int width,
                                      unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                      int msbFirst, unsigned short const* lut);

// ---------------------------------------------------------------------------------------------------------
// Edge-directed: bilinear, but green follows the direction in which it changes least. At red corners, the
// direct forms on 8-bit frames halve both greens before they add them, and so are 1 below the others when both are odd.

/** One pass, progressive frames, no table. `src` of the 16-bit forms points to the most significant byte of
 * the first sample, and every second byte is read from there. FlipX forms mirror what they store: the neighbours are
 * the frame's. */
TOVIX_API void EdgeDetectMove(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                              int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMoveFlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                   unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove32FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove16to8(unsigned char* dst, unsigned char const* src, unsigned int width,
                                   unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove16to8FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                        unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove16to832(unsigned char* dst, unsigned char const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int topDown);
TOVIX_API void EdgeDetectMove16to832FlipX(unsigned char* dst, unsigned char const* src, unsigned int width,
                                          unsigned int height, int redRowFirst, int greenFirst, int topDown);

/** Second passes, in memory order: the neighbours are those of the stored image. */
TOVIX_API void SecondEdgeDetectMove(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                    int greenFirst);
TOVIX_API void SecondEdgeDetectMove32(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                      int greenFirst);
TOVIX_API void SecondEdgeDetectMove16(unsigned short* image, unsigned int width, unsigned int height, int redRowFirst,
                                      int greenFirst);

/** First pass and second pass: interlaced frames, tables, 48-bit output. */
TOVIX_API void EdgeDetectMoveInPlace(unsigned char* dst, unsigned char const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                     int interlaced, unsigned char const* lut);
TOVIX_API void EdgeDetectMove32InPlace(unsigned char* dst, unsigned char const* src, unsigned int width,
                                       unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                       int interlaced, unsigned char const* lut);
TOVIX_API void EdgeDetectMove16to8InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                          unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                          int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void EdgeDetectMove16to832InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                            unsigned int height, int redRowFirst, int greenFirst, int flipX,
                                            int topDown, int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void EdgeDetectMove16InPlace(unsigned short* dst, unsigned short const* src, unsigned int width,
                                       unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                       int interlaced, int msbFirst, unsigned short const* lut);

/** Progressive frames: the form in two passes when there is a table, the direct one otherwise. */
TOVIX_API void EdgeDetectMove(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                              int redRowFirst, int greenFirst, int flipX, int topDown, unsigned char const* lut);
TOVIX_API void EdgeDetectMove32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                int redRowFirst, int greenFirst, int flipX, int topDown, unsigned char const* lut);
TOVIX_API void EdgeDetectMove16to8(unsigned char* dst, unsigned short const* src, unsigned int width,
                                   unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                   int msbFirst, unsigned short const* lut);
TOVIX_API void EdgeDetectMove16to832(unsigned char* dst, unsigned short const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                     int msbFirst, unsigned short const* lut);

// ---------------------------------------------------------------------------------------------------------
// Zurno: averages corrected by second differences, along the better direction. The finest. Interpolates in
// the order of the picture and flips the finished image, so flips move pixels and change none. Pictures 2
// pixels wide or high get edge-directed colours.

TOVIX_API void ZurnoMove(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                         int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                         unsigned char const* lut);
TOVIX_API void ZurnoMove32(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                           int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                           unsigned char const* lut);
TOVIX_API void ZurnoMove16to8(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                              int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                              unsigned short const* lut);
TOVIX_API void ZurnoMove16to832(unsigned char* dst, unsigned short const* src, unsigned int width, unsigned int height,
                                int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                                unsigned short const* lut);
TOVIX_API void ZurnoMove16(unsigned short* dst, unsigned short const* src, unsigned int width, unsigned int height,
                           int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced, int msbFirst,
                           unsigned short const* lut);

/** The interpolation alone, in place, on an image that a first pass laid out without flips. */
TOVIX_API void ZurnoMoveJob(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                            int greenFirst);
TOVIX_API void ZurnoMoveJob32(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                              int greenFirst);
TOVIX_API void ZurnoMoveJob(unsigned short* image, unsigned int width, unsigned int height, int redRowFirst,
                            int greenFirst);

/** Mirrors the columns (flipX), reverses the rows (flipY), or turns the image by half a turn (both), in
 * place. Byte 3 of 32-bit pixels stays where it is. */
TOVIX_API void FlipBgrAround(unsigned char* image, unsigned int width, unsigned int height, int flipX, int flipY);
TOVIX_API void FlipBgrAround32(unsigned char* image, unsigned int width, unsigned int height, int flipX, int flipY);
TOVIX_API void FlipBgrAround(unsigned short* image, unsigned int width, unsigned int height, int flipX, int flipY);

// ---------------------------------------------------------------------------------------------------------
// Quelt: red and blue are copies, green is the average of the two greens of the 2 x 2 cell that ends in the
// pixel, also at green sites. Smooth, for little more than nearest neighbour. Cells are those of the stored image.

TOVIX_API void QueltMoveInPlace(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                                unsigned char const* lut);
TOVIX_API void QueltMove32InPlace(unsigned char* dst, unsigned char const* src, unsigned int width, unsigned int height,
                                  int redRowFirst, int greenFirst, int flipX, int topDown, int interlaced,
                                  unsigned char const* lut);
TOVIX_API void QueltMove16to8InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                     int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void QueltMove16to832InPlace(unsigned char* dst, unsigned short const* src, unsigned int width,
                                       unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                       int interlaced, int msbFirst, unsigned short const* lut);
TOVIX_API void QueltMove16InPlace(unsigned short* dst, unsigned short const* src, unsigned int width,
                                  unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                  int interlaced, int msbFirst, unsigned short const* lut);

/** Second passes, in memory order. */
TOVIX_API void SecondQueltMove(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                               int greenFirst);
TOVIX_API void SecondQueltMove32(unsigned char* image, unsigned int width, unsigned int height, int redRowFirst,
                                 int greenFirst);
TOVIX_API void SecondQueltMove16(unsigned short* image, unsigned int width, unsigned int height, int redRowFirst,
                                 int greenFirst);

// ---------------------------------------------------------------------------------------------------------
// Four colours: the greens of red rows and those of blue rows stay apart, and each of the four planes is
// interpolated on its own. Bytes of a pixel: 0 red, 1 green of red rows, 2 blue, 3 green of blue rows.

TOVIX_API void FourColorsInterMove32InPlace(unsigned char* dst, unsigned char const* src, unsigned int width,
                                            unsigned int height, int redRowFirst, int greenFirst, int flipX,
                                            int topDown, int interlaced, unsigned char const* lut);
TOVIX_API void FirstCopyFourColors32(unsigned char* dst, unsigned char const* src, unsigned int width,
                                     unsigned int height, int redRowFirst, int greenFirst, int flipX, int topDown,
                                     int interlaced, unsigned char const* lut);
TOVIX_API void SecondFourColorsInterMove32(unsigned char* image, unsigned int width, unsigned int height,
                                           int redRowFirst, int greenFirst);
