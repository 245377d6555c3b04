// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share. A target is a program of one function, called with bytes of every kind: libFuzzer finds
// them, and replay.cpp runs those that are kept. It must return 0 whatever they are.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Standard output and error become a buffer that nobody reads: the library's messages would take most of the time. What
/// sanitizers and require() say is still seen.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace tovix::fuzz {

/// End the program as a crash does when something is not as it has to be.
void require(bool statement, const char* what);

/// Bytes of the input as numbers, from its beginning; zeroes when it is used up.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }

    /// Any number of that type: all of its bits count.
    template <class Number>
    Number number() {
        static_assert(std::is_arithmetic_v<Number>);
        std::uint8_t bytes[sizeof(Number)]{};
        std::ranges::copy(take(sizeof bytes), bytes);
        Number value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }

    /// 0 to `most`, by one byte where that is enough.
    std::uint32_t up_to(std::uint32_t most) {
        if (most == std::numeric_limits<std::uint32_t>::max()) return number<std::uint32_t>();
        const std::uint32_t any = most < 256 ? number<std::uint8_t>() : number<std::uint32_t>();
        return any % (most + 1);
    }

    bool flag() { return (number<std::uint8_t>() & 1) != 0; }

    template <class Value, std::size_t kCount>
    const Value& one_of(const Value (&table)[kCount]) {
        return table[up_to(kCount - 1)];
    }

    /// So many bytes, fewer at the end.
    std::span<const std::uint8_t> take(std::size_t most) {
        const auto taken = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    std::span<const std::uint8_t> rest() { return take(rest_.size()); }

    /// Fill a buffer with the next 64 bytes over and over; with zeroes when nothing comes.
    void fill(std::span<std::uint8_t> buffer);

  private:
    std::span<const std::uint8_t> rest_;
};

/// A block of the heap of exactly so many bytes, so that the address sanitizer sees the first one beyond it.
class Block {
  public:
    explicit Block(std::size_t size) : bytes_(new std::uint8_t[size]), size_(size) {}
    explicit Block(std::span<const std::uint8_t> content) : Block(content.size()) {
        std::ranges::copy(content, bytes_.get());
    }
    Block(std::size_t size, std::uint8_t value) : Block(size) { std::memset(data(), value, size); }
    std::uint8_t* data() const { return bytes_.get(); }
    std::size_t size() const { return size_; }
    std::span<std::uint8_t> span() const { return {bytes_.get(), size_}; }
    bool operator==(const Block& other) const {
        return size_ == other.size_ && std::memcmp(data(), other.data(), size_) == 0;
    }

  private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_;
};

/// Memory between two pages that nobody may touch, for code that sanitizers do not see.
class Fence {
  public:
    explicit Fence(std::size_t most);
    ~Fence();
    Fence(const Fence&) = delete;
    Fence& operator=(const Fence&) = delete;

    /// So many bytes at its front or at its end.
    std::span<std::uint8_t> span(std::size_t size, bool at_end) const;

  private:
    std::uint8_t* pages_;
    std::size_t size_;  // between the two
};

/// A file without a name whose content changes.
class ScratchFile {
  public:
    ScratchFile();
    ~ScratchFile();
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    /// Make this all of its content; the next read begins there.
    void set(std::span<const std::uint8_t> content) const;
    int fd() const { return fd_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

}  // namespace tovix::fuzz
