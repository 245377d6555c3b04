// SPDX-License-Identifier: Apache-2.0
// The picture is taken in upright strips, so that rows in work fit the nearest cache and the stack whatever the width.
//
//   frame --fetch--> raw rows --rule, matrix--> image
//
// Raw rows that the frame holds as they are wanted stay there: only those at its ends, beyond which nothing may be read,
// are copied.
//
// Columns are those of the frame; a mirrored image is turned round as it is stored. A strip fetches a few columns more on
// each side than it stores. Outside of the picture, raw rows and columns mirror those inside: there most rules need no
// exception. The first and the last column do: they are made again by the plain rules, pixel by pixel.
#include "sweep.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "bilinear.h"
#include "nearest.h"
#include "quelt.h"
#include "row_functions.h"
#include "weighted_sums.h"
#include "zurno.h"

namespace tovix::color {
namespace {

constexpr std::int64_t kStripWidth = 2624;  // even; most sensors are one strip
constexpr std::int64_t kOverlap = 4;        // columns beside a strip that rules look at
constexpr std::int64_t kMargin = kRowMargin;
constexpr std::int64_t kLeastWidth = 8, kLeastHeight = 6;

// Zurno's greens of a row want the raw rows up to two away, and red and blue the greens of the rows beside. Greens are one
// row ahead, so that these are all rows in work.
constexpr int kRawRows = 5, kGreenRows = 3;

/// A row in work. Vectors read more than the row, so that every sample has a value from the beginning.
template <class T>
class alignas(64) Row {
  public:
    T* columns() { return samples_ + kRowMargin; }

  private:
    T samples_[kRowMargin + kStripWidth + kRowMargin]{};
};

/// A site of rows in work, whose pixel stands in the image.
template <class T>
struct RowSite {
    using Channel = T;
    RowWindow<T> raw, green;
    std::int64_t x;
    int right;  // 1; -1 where the rule sees the columns from right to left
    T* pixel;

    int sample(int dx, int dy, int channel) const { return (channel == kGreen ? green : raw)[dy][x + dx * right]; }
    void put(int channel, int value) const { pixel[channel] = static_cast<T>(value); }
    void keep(int own_channel) const { pixel[own_channel] = raw[0][x]; }
};

template <class Rule, Site kSite, Around kIn>
struct Fill {
    void operator()(const auto& at) const { fill_site<Rule, kSite, kIn>(at); }
};

template <class T, class Reader>
class StripSweep {
  public:
    StripSweep(const Sweep& what, const RowFunctionSet& functions, const RowFunctions<T>& row_functions, Reader reader)
        : what_(what), set_(functions), rows_(row_functions), read_(reader) {
        if (!upright_) origin_ = origin_.below();
    }

    void run(std::int64_t begin, std::int64_t end) {
        begin_ = begin, end_ = end;
        rows_fetched_ = greens_filled_ = 0;
        for (std::int64_t i = 0; i < height_; ++i) {
            for (; zurno_ && greens_filled_ < std::min(i + 2, height_); ++greens_filled_) {
                fetch_up_to(greens_filled_ + 2);
                fill_greens(greens_filled_);
            }
            fetch_up_to(i + 1);
            make(i);
        }
    }

  private:
    std::int64_t columns() const { return end_ - begin_; }
    bool at_left() const { return begin_ == 0; }
    bool at_right() const { return end_ == width_; }

    /// Rows outside of the picture mirror those inside.
    std::int64_t inside(std::int64_t y) const { return y < 0 ? -y : y < height_ ? y : 2 * (height_ - 1) - y; }
    const T* raw(std::int64_t y) const { return raw_[inside(y) % kRawRows]; }
    T* green(std::int64_t y) { return green_[inside(y) % kGreenRows].columns(); }
    /// From `more` columns before the strip on.
    RowWindow<T> raw_window(std::int64_t y, std::int64_t more = 0) {
        return {{raw(y - 2) - more, raw(y - 1) - more, raw(y) - more, raw(y + 1) - more, raw(y + 2) - more}};
    }
    RowWindow<T> green_window(std::int64_t y) { return {{nullptr, green(y - 1), green(y), green(y + 1), nullptr}}; }
    Site site(std::int64_t y) const { return origin_.in_row(y); }
    bool at_rim(std::int64_t y) const { return y == 0 || y == height_ - 1; }

    /// Images are stored from the first row on, whatever the order of rows is.
    std::int64_t row_at(std::int64_t i) const { return backwards_ ? height_ - 1 - i : i; }

    void fetch_up_to(std::int64_t i) {
        for (; rows_fetched_ <= std::min(i, height_ - 1); ++rows_fetched_)
            fetch(row_at(rows_fetched_));
    }

    std::int64_t frame_row(std::int64_t y) const { return place_.frame_row(upright_ ? y : height_ - 1 - y); }

    void fetch(std::int64_t y) {
        const std::int64_t begin = frame_row(y) * width_ + begin_;
        const bool at_end_of_frame = begin < kMargin || begin + columns() + kMargin > width_ * height_;
        const T* const in_place = at_end_of_frame ? nullptr : read_.in_place(begin);
        raw_[y % kRawRows] = in_place ? in_place : fetched(y);
    }

    const T* fetched(std::int64_t y) {
        T* const row = copies_[y % kRawRows].columns();
        const std::int64_t first = std::max<std::int64_t>(begin_ - kOverlap, 0);
        const std::int64_t last = std::min(end_ + kOverlap, width_);
        read_(set_.fetch, row + (first - begin_), frame_row(y) * width_ + first,
              static_cast<std::size_t>(last - first));
        for (std::int64_t x = 1; x <= kOverlap; ++x) {
            if (at_left()) row[-x] = row[x];
            if (at_right()) row[columns() - 1 + x] = row[columns() - 1 - x];
        }
        return row;
    }

    /// The row's greens, also in the columns beside the strip: red and blue look at them.
    void fill_greens(std::int64_t y) {
        constexpr std::int64_t kMore = 2;
        const bool near_rim = y < 2 || y >= height_ - 2;
        const auto fill = at_rim(y) ? rows_.edge_green_rim : near_rim ? rows_.edge_green : rows_.zurno_green;
        T* const out = green(y);
        const RowWindow<T> rows = raw_window(y);
        fill(out - kMore, {
                              .raw = raw_window(y, kMore),
                              .width = static_cast<std::size_t>(columns() + 2 * kMore),
                              .red_row = site(y).red_row,
                              .green_first = site(y).green,
                              .next_samples = read_.bytes(frame_row(inside(y + 3)) * width_ + begin_),
                              .sample_bytes = Reader::kSampleBytes,
                          });
        // Zurno begins at the first site that lacks green. The columns at the rim are for the edge-directed rule.
        T pixel[3];
        const auto put_right = [&](std::int64_t x, const auto& make_again) {
            make_again(RowSite<T>{rows, rows, x, 1, pixel});
            out[x] = pixel[kGreen];
        };
        make_ends<EdgeDirected>(y, put_right);
        if (near_rim) return;
        with_site(site(y), [&](auto first) {
            if (at_left() && first().green) put_right(1, Fill<ZurnoRingGreen, first().beside(), kInside>{});
            if (at_right() && !first().green) put_right(columns() - 2, Fill<ZurnoRingGreen, first(), kInside>{});
        });
    }

    /// The strip's pixels of a row.
    T* image_of(std::int64_t y) const {
        const std::int64_t row = frame_order_ ? place_.image_row(y) : y;
        return static_cast<T*>(what_.image) + (row * width_ + (place_.mirrored ? width_ - end_ : begin_)) * pixel_size_;
    }

    void make(std::int64_t i) {
        const std::int64_t y = row_at(i);
        T* const image = image_of(y);
        const RowWindow<T> raw_rows = raw_window(y), green_rows = zurno_ ? green_window(y) : raw_rows;
        rows_.make[static_cast<int>(rule(y))][pixel_size_ == 4][what_.weights != nullptr]({
            .raw = raw_rows,
            .green = green_rows,
            .width = static_cast<std::size_t>(columns()),
            .red_row = site(y).red_row,
            .green_first = site(y).green,
            .left = from_right_ ? 1 : -1,
            .image = image,
            .mirrored = place_.mirrored,
            .weights = what_.weights,
            .next_samples = read_.bytes(frame_row(row_at(inside(i + 2))) * width_ + begin_),
            .sample_bytes = Reader::kSampleBytes,
        });

        const auto put_right = [&](std::int64_t x, const auto& make_again) {
            T* const pixel = image + (place_.mirrored ? columns() - 1 - x : x) * pixel_size_;
            make_again(RowSite<T>{raw_rows, green_rows, x, from_right_ ? -1 : 1, pixel});
            if (what_.weights == nullptr) return;
            if constexpr (sizeof(T) == 1) {
                if (pixel_size_ == 4) return colora::apply_matrix<4>(what_.weights, pixel, 1);
            }
            colora::apply_matrix<3>(what_.weights, pixel, 1);
        };
        switch (what_.method) {
            case Method::kGrey: break;
            case Method::kNearest: make_ends<Nearest>(y, put_right); break;
            case Method::kQuelt: make_ends<Quelt>(y, put_right); break;
            case Method::kEdgeDirected:
                if (corner_of_bytes_)
                    make_ends<EdgeDirectedRawBytes>(y, put_right);
                else
                    make_ends<EdgeDirected>(y, put_right);
                break;
            case Method::kZurno:
                make_ends<EdgeDirected>(y, put_right);
                if (!at_left() && site(y).green && !at_rim(y)) {
                    with_site(site(y), [&](auto first) { put_right(0, Fill<ZurnoRedAndBlue, first(), kInside>{}); });
                }
        }
    }

    RowRule rule(std::int64_t y) const {
        switch (what_.method) {
            case Method::kNearest: return RowRule::kNearest;
            case Method::kQuelt: return y == 0 ? RowRule::kNearest : RowRule::kQuelt;
            case Method::kEdgeDirected: return at_rim(y) ? RowRule::kEdgeDirectedRim : RowRule::kEdgeDirected;
            case Method::kZurno: return at_rim(y) ? RowRule::kEdgeDirectedRim : RowRule::kZurno;
            default: return RowRule::kGrey;
        }
    }

    /// The first and the last column by the plain rule, where the strip has them.
    template <class Rule>
    void make_ends(std::int64_t y, const auto& put_right) {
        if (y == 0)
            make_ends_of<Rule, false, true>(y, put_right);
        else if (y == height_ - 1)
            make_ends_of<Rule, true, false>(y, put_right);
        else
            make_ends_of<Rule, true, true>(y, put_right);
    }
    template <class Rule, bool kAbove, bool kBelow>
    void make_ends_of(std::int64_t y, const auto& put_right) {
        with_site(site(y), [&](auto first) {
            constexpr Site kFirst = first(), kLast = kFirst.beside();
            constexpr Around kAtBegin{false, true, kAbove, kBelow}, kAtEnd{true, false, kAbove, kBelow};
            const std::int64_t end = columns() - 1;
            if (at_left()) {
                from_right_ ? put_right(0, Fill<Rule, kFirst, kAtEnd>{}) : put_right(0, Fill<Rule, kFirst, kAtBegin>{});
            }
            if (at_right()) {
                from_right_ ? put_right(end, Fill<Rule, kLast, kAtBegin>{})
                            : put_right(end, Fill<Rule, kLast, kAtEnd>{});
            }
        });
    }

    const Sweep& what_;
    const Placement& place_ = what_.place;
    const std::int64_t width_ = place_.size.width, height_ = place_.size.height;
    const bool frame_order_ = what_.order == RuleOrder::kFrame;  // of rows, and of what is left
    const bool upright_ = place_.top_down || frame_order_;
    const bool backwards_ = frame_order_ && !place_.top_down;
    const bool from_right_ = place_.mirrored && !frame_order_;  // the rule's first column is the last of the frame
    const bool corner_of_bytes_ = Reader::kSampleBytes == 1 && frame_order_;  // of the direct kernels on 8-bit frames
    const bool zurno_ = what_.method == Method::kZurno;
    const int pixel_size_ = what_.layout == Layout::kRgb32 ? 4 : 3;
    const RowFunctionSet& set_;
    const RowFunctions<T>& rows_;
    const Reader read_;
    Site origin_ = what_.origin;  // of the picture as it is made
    std::int64_t begin_ = 0, end_ = 0;
    std::int64_t rows_fetched_ = 0, greens_filled_ = 0;
    const T* raw_[kRawRows]{};  // in the frame, or the copy
    Row<T> copies_[kRawRows];
    Row<T> green_[kGreenRows];
};

template <class T, class Reader>
bool run(const Sweep& what, const RowFunctionSet& functions, const RowFunctions<T>& row_functions, Reader reader) {
    StripSweep<T, Reader> strip(what, functions, row_functions, reader);
    const std::int64_t width = what.place.size.width;
    const std::int64_t strips = (width + kStripWidth - 1) / kStripWidth;
    for (std::int64_t i = 0; i < strips; ++i)
        strip.run(width * i / strips / 2 * 2, width * (i + 1) / strips / 2 * 2);
    return true;
}

/// The functions of this processor, unless the picture is not for them.
const RowFunctionSet* functions_for(const Sweep& what) {
    const Size& size = what.place.size;
    if (!size.has_cells() || size.width < kLeastWidth || size.height < kLeastHeight) return nullptr;
    if (what.layout == Layout::kRgb48 && what.weights != nullptr) {
        // The products of two words with two of these weights are one too many for 32 bits.
        constexpr short kLeast = std::numeric_limits<short>::min();
        for (const short* row = what.weights; row != what.weights + 12; row += 4) {
            if (std::count(row, row + 3, kLeast) > 1) return nullptr;
        }
    }
    return row_functions();
}

struct ReadBytes {
    static constexpr std::size_t kSampleBytes = 1;
    ByteFrame frame;
    const std::uint8_t* bytes(std::int64_t from) const { return frame.samples + from; }
    const std::uint8_t* in_place(std::int64_t from) const { return frame.table ? nullptr : bytes(from); }
    void operator()(const FetchFunctions& fetch, std::uint8_t* row, std::int64_t from, std::size_t count) const {
        frame.table ? fetch.bytes_by_table(row, bytes(from), count, frame.table)
                    : static_cast<void>(std::memcpy(row, bytes(from), count));
    }
};

template <class T>
struct ReadWords {
    static constexpr std::size_t kSampleBytes = 2;
    WordFrame frame;
    const std::uint8_t* bytes(std::int64_t from) const {
        return reinterpret_cast<const std::uint8_t*>(frame.samples) + 2 * from;
    }
    /// Words as this machine reads them, at even addresses.
    const T* in_place(std::int64_t from) const {
        if constexpr (sizeof(T) == 2) {
            const bool even = reinterpret_cast<std::uintptr_t>(frame.samples) % sizeof(T) == 0;
            if (even && !frame.msb_first && frame.table == nullptr) return frame.samples + from;
        }
        return nullptr;
    }
    void operator()(const FetchFunctions& fetch, T* row, std::int64_t from, std::size_t count) const {
        const auto* const samples = bytes(from);
        if (sizeof(T) == 1 && frame.table_top_bytes != nullptr) {
            look_up(row, samples, count,
                    [&](const std::uint8_t* sample) { return frame.table_top_bytes[Words<1>{samples}(sample)]; });
        } else if (frame.table != nullptr) {
            look_up(row, samples, count, TabledWords<T>{samples, frame.table});
        } else if constexpr (sizeof(T) == 1) {
            fetch.top_bytes(row, samples, count, frame.msb_first);
        } else {
            fetch.words(row, samples, count, frame.msb_first);
        }
    }

  private:
    static void look_up(T* row, const std::uint8_t* samples, std::size_t count, const auto& entry_of) {
        constexpr std::size_t kTogether = 8 / sizeof(T);  // one store for all
        std::size_t x = 0;
        for (; x + kTogether <= count; x += kTogether) {
            std::uint64_t together = 0;
            for (std::size_t i = 0; i < kTogether; ++i)
                together |= std::uint64_t{entry_of(samples + 2 * (x + i))} << (8 * sizeof(T) * i);
            std::memcpy(row + x, &together, sizeof together);
        }
        for (; x < count; ++x)
            row[x] = entry_of(samples + 2 * x);
    }
};

}  // namespace

bool sweep(const Sweep& what, const ByteFrame& frame) {
    const RowFunctionSet* const functions = functions_for(what);
    return functions != nullptr && run(what, *functions, functions->bytes, ReadBytes{frame});
}

bool sweep(const Sweep& what, const WordFrame& frame) {
    const RowFunctionSet* const functions = functions_for(what);
    if (functions == nullptr) return false;
    return what.layout == Layout::kRgb48 ? run(what, *functions, functions->words, ReadWords<std::uint16_t>{frame})
                                         : run(what, *functions, functions->bytes, ReadWords<std::uint8_t>{frame});
}

}  // namespace tovix::color
