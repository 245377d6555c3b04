// SPDX-License-Identifier: Apache-2.0
#include "hex_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

/// Read exactly `count` characters. Their number, less at the end of the file, or -1.
ssize_t read_characters(int fd, char* text, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t result = ::read(fd, text + done, count - done);
        if (result < 0 && errno == EINTR) continue;
        if (result < 0) return -1;
        if (result == 0) break;
        done += static_cast<std::size_t>(result);
    }
    return static_cast<ssize_t>(done);
}

/// Read a number of `Digits` hexadecimal digits. What is no digit ends the number early, as strtol has it.
template <int Digits, class Number>
bool read_number(int fd, Number* number) {
    char text[Digits + 1] = {};
    const ssize_t count = read_characters(fd, text, Digits);
    if (count >= 0 && count < Digits) errno = EBADMSG;  // the file cuts the record off
    if (count != Digits) return false;
    *number = static_cast<Number>(std::strtol(text, nullptr, 16));
    return true;
}

}  // namespace

std::int32_t hex_read_section(int fd, usb_firmware_header* header, std::uint8_t* data) {
    char c = 0;
    do {
        const ssize_t count = read_characters(fd, &c, 1);
        if (count != 1) return static_cast<std::int32_t>(count);
    } while (c != '\0' && std::strchr(" \t\n\r\v\f", c) != nullptr);
    if (c != ':') {
        errno = EBADMSG;
        return -1;
    }
    if (!read_number<2>(fd, &header->length) || !read_number<4>(fd, &header->address) ||
        !read_number<2>(fd, &header->type)) {
        return -1;
    }
    for (int i = 0; i < header->length; ++i) {
        if (!read_number<2>(fd, &data[i])) return -1;
    }
    if (!read_number<2>(fd, &header->checksum)) return -1;
    return header->length;
}
