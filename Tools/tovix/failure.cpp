// SPDX-License-Identifier: Apache-2.0
#include "failure.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "tovixapi/tovixapi.h"

std::string text(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string out(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(out.data(), out.size() + 1, format, again);
    va_end(again);
    return out;
}

std::string result_text(std::int32_t result) {
    switch (result) {
        case TOVIX_EFAIL: return "the library refused it or the device failed";
        case TOVIX_ESEARCH: return "the search for devices failed";
        case TOVIX_ENOMEM: return "out of memory";
        case TOVIX_EMODEL: return "the model data is malformed";
        case TOVIX_EINVAL: return "the camera cannot do that";
        case TOVIX_EADJUST: return "a property cannot be read or set";
        case TOVIX_ELIGHT: return "the picture is too dark or too bright";
        case TOVIX_ENOTSUP: return "the library does not provide that";
        case TOVIX_ENODATA: return "the stream has ended";
        default: return text("status 0x%08X", static_cast<unsigned>(result));
    }
}

std::string printable(const std::string& untrusted) {
    std::string out = untrusted;
    std::ranges::replace_if(
        out, [](char c) { return c < ' ' || c > '~'; }, '?');
    return out;
}
