// SPDX-License-Identifier: Apache-2.0
// How the tool says that something failed: one line that tells why and what to try.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

/// A command failed. what() is the whole line without its end; the tool prints it and leaves with status 1.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);

/// A negative result of the library in words.
std::string result_text(std::int32_t result);

/// The same with what is not printable ASCII replaced by '?': for names that come from a device, on their way
/// to a terminal, a JSON text or a line of a file.
std::string printable(const std::string& untrusted);
