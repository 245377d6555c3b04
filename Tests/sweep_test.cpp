// SPDX-License-Identifier: Apache-2.0
// The sweep against kernels and matrix one after the other, in their plain form: the same bytes, for every kind of
// processor that this one can stand for, and not a byte read or written beyond the buffers.
#include <gtest/gtest.h>
#include <hwy/targets.h>
#include <sys/mman.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

/// Bytes between two pages that nobody may touch: right behind the first one, or right before the second.
class Fenced {
  public:
    enum class Side { kFront, kBack };

    Fenced(std::size_t size, Side side) : size_(size), whole_((size + 3 * page() - 1) / page() * page()) {
        pages_ = static_cast<unsigned char*>(
            mmap(nullptr, whole_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (pages_ == MAP_FAILED || mprotect(pages_, page(), PROT_NONE) != 0 ||
            mprotect(pages_ + whole_ - page(), page(), PROT_NONE) != 0) {
            throw std::bad_alloc();
        }
        data_ = side == Side::kFront ? pages_ + page() : pages_ + whole_ - page() - size;
    }
    ~Fenced() { munmap(pages_, whole_); }
    Fenced(const Fenced&) = delete;
    Fenced& operator=(const Fenced&) = delete;

    unsigned char* begin() const { return data_; }
    unsigned char* end() const { return data_ + size_; }

  private:
    static std::size_t page() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

    std::size_t size_, whole_;
    unsigned char *pages_, *data_;
};

struct Conversion {
    unsigned width, height, bits;
    _vorm_format format;
    _vorm_settings settings;

    std::size_t frame_bytes() const { return std::size_t{width} * height * (format.sample_kind != 0 ? 2 : 1); }
    std::size_t image_bytes() const { return std::size_t{width} * height * bits / 8; }
};

std::ostream& operator<<(std::ostream& out, const Conversion& c) {
    return out << c.width << " x " << c.height << " to " << c.bits << " bits, method " << c.settings.demosaic_method
               << ", kind " << c.format.sample_kind << ", blue " << c.format.first_row_blue << ", green "
               << c.format.first_green << ", interlaced " << c.format.interlaced << ", flips " << c.settings.flip_x
               << c.settings.flip_y << ", table " << c.settings.lut_size << ", matrix " << c.settings.correction_matrix;
}

using Random = std::mt19937;

/// Noise, few levels (so that changes are often equal), or both ends only.
void fill_frame(const Fenced& frame, Random& random) {
    const auto kind = random() % 3;
    std::ranges::generate(frame, [&] {
        const auto word = static_cast<unsigned>(random());
        return static_cast<unsigned char>(kind == 0 ? word : kind == 1 ? 120 + word % 3 : (word & 1) * 255);
    });
}

/// By `targets` alone; 0 is the plain form.
void use_targets(std::int64_t targets) {
    hwy::GetChosenTarget().Update(targets);
}

class SweepTest : public ::testing::Test {
  protected:
    ~SweepTest() override { use_targets(hwy::SupportedTargets()); }

    void compare(const Conversion& conversion, Fenced::Side side) {
        const std::size_t shift = cases % 2;  // words may stand at odd addresses
        const Fenced frame(conversion.frame_bytes() + shift, side), image(conversion.image_bytes(), side);
        fill_frame(frame, random);
        std::vector<unsigned char> before(conversion.image_bytes()), expected;
        std::ranges::generate(before, [&] { return static_cast<unsigned char>(random()); });
        for (const std::int64_t target : targets) {
            std::ranges::copy(before, image.begin());
            use_targets(target);
            ASSERT_EQ(vorm.ConvertBayerToRgb(image.begin(), frame.begin() + shift, conversion.bits, &conversion.format,
                                             &conversion.settings),
                      1)
                << conversion;
            if (expected.empty()) {
                expected.assign(image.begin(), image.end());
                continue;
            }
            ++cases;
            const auto [at, wanted] = std::mismatch(image.begin(), image.end(), expected.begin());
            ASSERT_EQ(at, image.end()) << conversion << ": byte " << at - image.begin() << " is " << int{*at}
                                       << ", not " << int{*wanted} << ", by " << hwy::TargetName(target);
        }
    }

    Conversion make(unsigned width, unsigned height, unsigned method, unsigned sample_kind, unsigned bits) {
        const auto flag = [&]() -> unsigned { return random() & 1; };
        Conversion made{width, height, bits, {}, vorm.settings};
        made.format = {width, height, flag(), flag(), 0, flag(), flag(), sample_kind};
        made.settings.demosaic_method = method;
        made.settings.flip_x = static_cast<int>(flag());
        made.settings.flip_y = static_cast<int>(flag());
        made.settings.correction_matrix = flag();
        made.settings.matrix = matrix;
        const auto kind = random() % 4;  // the usual, anything, or as large as can be
        std::ranges::generate(matrix, [&] {
            const int word = static_cast<int>(random()), least = kind == 2 ? -32767 : -32768;
            return static_cast<short>(kind == 0 ? (word & 16383) - 6000 : kind == 1 ? word : word & 1 ? 32767 : least);
        });
        made.settings.lut_size = flag() * 256;
        made.settings.lut = &table8;
        made.settings.lut16 = table16.data();
        return made;
    }

    void compare_all_kinds(unsigned width, unsigned height) {
        for (const unsigned method : {TOVIX_DEMOSAIC_NONE, TOVIX_DEMOSAIC_NEAREST, TOVIX_DEMOSAIC_EDGE,
                                      TOVIX_DEMOSAIC_ZURNO, TOVIX_DEMOSAIC_QUELT}) {
            for (const unsigned sample_kind : {0u, 1u, 2u}) {
                for (const unsigned bits : {24u, 32u, 48u}) {
                    if (sample_kind == 0 && bits == 48) continue;
                    if (method == TOVIX_DEMOSAIC_NONE && width * 3 % 4 != 0) continue;  // its rows are padded
                    const auto side = cases / 2 % 2 == 0 ? Fenced::Side::kFront : Fenced::Side::kBack;
                    compare(make(width, height, method, sample_kind, bits), side);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }

    Random random{7};
    CVorm vorm;
    short matrix[12]{};
    _lut8_struct table8{};
    std::vector<unsigned short> table16 = std::vector<unsigned short>(65536);
    std::vector<std::int64_t> targets{0};
    std::size_t cases = 0;

    void SetUp() override {
        std::ranges::generate(table8.table, [&] { return static_cast<unsigned char>(random()); });
        std::ranges::generate(table16, [&] { return static_cast<unsigned short>(random()); });
        for (const std::int64_t target :
             {std::int64_t{HWY_SSSE3}, std::int64_t{HWY_SSE4}, std::int64_t{HWY_AVX2}, std::int64_t{HWY_NEON}}) {
            if ((hwy::SupportedTargets() & target) != 0) targets.push_back(target);
        }
        if (targets.size() == 1) GTEST_SKIP() << "nothing but the plain form runs on this processor";
    }
};

/// Ends of vectors fall everywhere.
TEST_F(SweepTest, EverySizeOfOneStrip) {
    for (unsigned width = 2; width <= 140; width += 2) {
        for (const unsigned height : {4u, 6u, 8u, 10u + width % 8}) {
            compare_all_kinds(width, height);
            if (HasFatalFailure()) return;
        }
    }
    std::printf("%zu cases\n", cases);
}

/// An object keeps its table for words; the table of somebody else is looked up as it is.
TEST_F(SweepTest, TablesOfWords) {
    constexpr unsigned kWidth = 16, kHeight = 6, kMaxPixelBytes = 6;
    const Fenced frame(2 * kWidth * kHeight, Fenced::Side::kBack);
    const Fenced image(kMaxPixelBytes * kWidth * kHeight, Fenced::Side::kBack);
    fill_frame(frame, random);
    tovix_image_format format{};
    format.size = sizeof format, format.width = kWidth, format.height = kHeight, format.pixel_format = 1;
    for (const int gamma : {220, 150, 220}) {
        for (const unsigned flags : {0u, unsigned{TOVIX_IMAGE_SECOND_FAMILY}}) {
            format.flags = flags;
            for (const unsigned bits : {24u, 48u}) {
                CVorm fresh;
                std::vector<unsigned char> images[2];
                for (CVorm* const by : {&fresh, &vorm}) {
                    use_targets(by == &fresh ? 0 : targets.back());
                    by->SetGamma(gamma, 15);
                    ASSERT_EQ(by->ConvertToRgb(image.begin(), frame.begin(), bits, &format, nullptr), TOVIX_OK);
                    images[by == &vorm].assign(image.begin(), image.end());
                }
                EXPECT_TRUE(images[0] == images[1]) << "gamma " << gamma << ", flags " << flags << ", " << bits;
            }
        }
    }
    compare_all_kinds(kWidth, kHeight);
}

/// A picture that is wider is made in several strips; nobody sees where they meet.
TEST_F(SweepTest, SeveralStrips) {
    for (const unsigned width : {2622u, 2626u, 5250u}) {
        for (int i = 0; i < 2; ++i) {
            compare_all_kinds(width, 6);
            if (HasFatalFailure()) return;
        }
    }
}

}  // namespace
