// SPDX-License-Identifier: Apache-2.0
#include "tiff_file.h"

#include <tiffio.h>
#include <unistd.h>

#include <cstdarg>
#include <memory>
#include <utility>

namespace {

constexpr std::uint32_t kStripBytes = 1 << 20;

/// The library's reason, kept from standard error.
int keep_message(TIFF*, void* message, const char*, const char* format, va_list arguments) {
    char words[200];
    std::vsnprintf(words, sizeof words, format, arguments);
    *static_cast<std::string*>(message) = words;
    return 1;
}

int drop_message(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

Tiff open_tiff(const PendingFile& file, std::string& message) {
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                   TIFFOpenOptionsFree);
    if (options == nullptr) return {nullptr, TIFFClose};
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keep_message, &message);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), drop_message, nullptr);
    const int descriptor = dup(fileno(file.stream()));  // closed with the TIFF
    if (descriptor < 0) return {nullptr, TIFFClose};
    Tiff tiff(TIFFFdOpenExt(descriptor, "picture", "w", options.get()), TIFFClose);
    if (tiff == nullptr) close(descriptor);
    return tiff;
}

bool set_fields(TIFF* tiff, const Picture& picture, std::uint32_t rows_per_strip) {
    const bool grey = picture.channels == 1;
    return TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, picture.width) == 1 &&
           TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, picture.height) == 1 &&
           TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, picture.channels) == 1 &&
           TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, picture.bits) == 1 &&
           TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) == 1 &&
           TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == 1 &&
           TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) == 1 &&
           TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) == 1 &&
           TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows_per_strip) == 1;
}

bool write_strips(TIFF* tiff, std::span<const std::uint8_t> rest, std::size_t strip_bytes) {
    for (std::uint32_t strip = 0; !rest.empty(); ++strip) {
        const auto now = rest.first(std::min(strip_bytes, rest.size()));
        // Uncompressed, nothing is changed in place.
        if (TIFFWriteEncodedStrip(tiff, strip, const_cast<std::uint8_t*>(now.data()),
                                  static_cast<tmsize_t>(now.size())) < 0)
            return false;
        rest = rest.subspan(now.size());
    }
    return TIFFFlush(tiff) == 1;
}

}  // namespace

void write_tiff(const PendingFile& file, const Picture& picture) {
    const std::uint32_t row_bytes = picture.width * picture.channels * (picture.bits / 8);
    const std::uint32_t rows_per_strip = std::max(kStripBytes / row_bytes, 1u);
    std::string message = "no memory";
    const Tiff tiff = open_tiff(file, message);
    if (tiff == nullptr || !set_fields(tiff.get(), picture, rows_per_strip) ||
        !write_strips(tiff.get(), picture.bytes, std::size_t{row_bytes} * rows_per_strip))
        throw file.failure(message);
}
