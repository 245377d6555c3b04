// SPDX-License-Identifier: Apache-2.0
// Every exported kernel by name, with what it must be told to be called: for whoever calls them all.
#pragma once

#include <tovixapi/kernels.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>

#include "color_reference.h"

namespace kernels {

using reference::Method;
using reference::Mosaic;
using Bytes = std::vector<std::uint8_t>;

inline Bytes random_bytes(std::size_t count, unsigned seed, unsigned levels) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random() % levels);
    return bytes;
}

inline const Bytes kTable = random_bytes(2 * 65536, 7, 256);

/// What a kernel is told. Flags go by letters: r(ed row first), g(reen first), f(lip x), t(op down),
/// i(nterlaced), m(sb first), l(ook-up table).
struct Case {
    int width, height;
    std::string flags;  // that are set
    Bytes frame;        // exactly as long as the kernel may read

    bool has(char flag) const { return flags.find(flag) != std::string::npos; }
};

/// Hands a kernel what each of its parameters asks for: sizes and pointers in their order, flags by the letters.
struct Supplier {
    const Case& c;
    const char* letters;
    const void* source;
    int sizes = 0;

    template <class T>
    T next() {
        if constexpr (std::is_pointer_v<T>) {
            const void* const pointer = source ? source : c.has('l') ? kTable.data() : nullptr;
            source = nullptr;
            return static_cast<T>(pointer);
        } else if constexpr (std::is_unsigned_v<T>) {
            return static_cast<T>(sizes++ == 0 ? c.width : c.height);
        } else {
            constexpr std::array kTrue{1, 2, -1, 0x100};  // anything but 0 is the same
            const char letter = *letters++;
            return c.has(letter) ? kTrue[static_cast<std::size_t>(letter + c.width / 2) % kTrue.size()] : 0;
        }
    }
};

using Run = std::function<void(const Case&, const char* letters, const void* source, void* image)>;

template <class Channel, class... Rest>
Run bind(void (*kernel)(Channel*, Rest...)) {
    return [kernel](const Case& c, const char* letters, const void* source, void* image) {
        Supplier supplier{c, letters, source};
        const std::tuple<Rest...> rest{supplier.next<Rest>()...};
        std::apply([&](auto... r) { kernel(static_cast<Channel*>(image), r...); }, rest);
    };
}

enum Order { kSource, kMemory, kSelector, kInPlace };  // whose left and above are meant

struct Kernel {
    const char* name;
    Run run;
    const char* letters;  // its flags in the order of its parameters; F, I: always flips, reads fields; P: pads rows
    int depth;            // bits of a sample
    int output;           // bits of a pixel
    Method method;
    Order order = kMemory;
    int channels = 3;  // that the method may write

    bool has(char letter) const { return std::strchr(letters, letter) != nullptr; }
    int pixel() const { return output == 8 ? 1 : output == 32 ? 4 : 3; }
    int bytes() const { return output == 48 ? 2 : 1; }  // of a channel
    int stride(int width) const { return has('P') ? (width * output / 8 + 3) / 4 * 4 : width * output / 8; }
};

using Direct = void(unsigned char*, unsigned char const*, unsigned, unsigned, int, int, int);
using ByteSelector = void(unsigned char*, unsigned char const*, unsigned, unsigned, int, int, int, int,
                          unsigned char const*);
using WordSelector = void(unsigned char*, unsigned short const*, unsigned, unsigned, int, int, int, int, int,
                          unsigned short const*);
using ByteJob = void(unsigned char*, unsigned, unsigned, int, int);
using WordJob = void(unsigned short*, unsigned, unsigned, int, int);
#define KERNEL(name) #name, bind(name)
#define KERNEL_AS(type, name) #name " " #type, bind(static_cast <type*>(name))

// clang-format off
#define FIVE_FORMS(name, end, flags, ...)                       \
    {KERNEL(name##end), flags "l", 8, 24, __VA_ARGS__},         \
    {KERNEL(name##32##end), flags "l", 8, 32, __VA_ARGS__},     \
    {KERNEL(name##16to8##end), flags "ml", 16, 24, __VA_ARGS__}, \
    {KERNEL(name##16to832##end), flags "ml", 16, 32, __VA_ARGS__}, \
    {KERNEL(name##16##end), flags "ml", 16, 48, __VA_ARGS__}
#define SECOND_PASSES(name, method)                             \
    {KERNEL(name), "rg", 8, 24, method, kInPlace},              \
    {KERNEL(name##32), "rg", 8, 32, method, kInPlace},          \
    {KERNEL(name##16), "rg", 16, 48, method, kInPlace}
#define DIRECT_AND_SELECTOR(name, Selector, msb, depth, output, method) \
    {KERNEL_AS(Direct, name), "rgt" msb, depth, output, method, kSource}, \
    {KERNEL(name##FlipX), "rgt" msb "F", depth, output, method, kSource}, \
    {KERNEL_AS(Selector, name), "rgft" msb "l", depth, output, method, kSelector}
#define DIRECT_FORMS(name, byte_method, word_method)                             \
    DIRECT_AND_SELECTOR(name, ByteSelector, "", 8, 24, byte_method),             \
    DIRECT_AND_SELECTOR(name##32, ByteSelector, "", 8, 32, byte_method),         \
    DIRECT_AND_SELECTOR(name##16to8, WordSelector, "m", 16, 24, word_method),    \
    DIRECT_AND_SELECTOR(name##16to832, WordSelector, "m", 16, 32, word_method)

inline const Kernel kKernels[] = {
    {KERNEL(NoneMove), "ftlP", 8, 24, Method::kGrey},
    {KERNEL(NoneMove32), "ftl", 8, 32, Method::kGrey, kMemory, 4},
    {KERNEL(NoneMove16to8), "ftmlP", 16, 24, Method::kGrey},
    {KERNEL(NoneMove16to832), "ftml", 16, 32, Method::kGrey},
    {KERNEL(MonoToMonoMove), "ftlP", 8, 8, Method::kGrey},
    {KERNEL(MonoToMonoMove16to8), "ftmlP", 16, 8, Method::kGrey},
    {KERNEL(MonoToMonoMoveDeinterl), "ftlI", 8, 8, Method::kGrey},
    {KERNEL(MonoToMonoMove16to8Deinterl), "ftmlI", 16, 8, Method::kGrey},
    FIVE_FORMS(NoneMove, InPlace, "fti", Method::kGrey),
    SECOND_PASSES(SecondNoneMove, Method::kGrey),
    FIVE_FORMS(FirstCopy, , "rgfti", Method::kOwn),
    DIRECT_FORMS(NearestNeighbor, Method::kNearest, Method::kNearest),
    FIVE_FORMS(NearestNeighbor, InPlace, "rgfti", Method::kNearest),
    SECOND_PASSES(SecondNearestNeighbor, Method::kNearest),
    DIRECT_FORMS(EdgeDetectMove, Method::kEdgeHalvedCorners, Method::kEdge),
    FIVE_FORMS(EdgeDetectMove, InPlace, "rgfti", Method::kEdge),
    SECOND_PASSES(SecondEdgeDetectMove, Method::kEdge),
    FIVE_FORMS(ZurnoMove, , "rgfti", Method::kZurno, kSource),
    {KERNEL_AS(ByteJob, ZurnoMoveJob), "rg", 8, 24, Method::kZurno, kInPlace},
    {KERNEL(ZurnoMoveJob32), "rg", 8, 32, Method::kZurno, kInPlace},
    {KERNEL_AS(WordJob, ZurnoMoveJob), "rg", 16, 48, Method::kZurno, kInPlace},
    FIVE_FORMS(QueltMove, InPlace, "rgfti", Method::kQuelt),
    SECOND_PASSES(SecondQueltMove, Method::kQuelt),
    {KERNEL(FirstCopyFourColors32), "rgftil", 8, 32, Method::kOwnPlane, kMemory, 4},
    {KERNEL(SecondFourColorsInterMove32), "rg", 8, 32, Method::kFourColour, kInPlace, 4},
    {KERNEL(FourColorsInterMove32InPlace), "rgftil", 8, 32, Method::kFourColour, kMemory, 4},
};
// clang-format on

/// The kernel of that name. Of overloaded ones, that with the parameters of "NAME TYPE", or the one with a table.
inline const Kernel& find(const std::string& name) {
    for (const Kernel& kernel : kKernels) {
        for (const char* const type : {"", " ByteSelector", " WordSelector"})
            if (kernel.name == name + type) return kernel;
    }
    throw std::out_of_range(name);
}

#undef DIRECT_FORMS
#undef DIRECT_AND_SELECTOR
#undef SECOND_PASSES
#undef FIVE_FORMS
#undef KERNEL_AS
#undef KERNEL

}  // namespace kernels
