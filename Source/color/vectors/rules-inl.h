// SPDX-License-Identifier: Apache-2.0
// Demosaic rules, for a vector of columns from x on. The plain forms (nearest.h, quelt.h, bilinear.h, zurno.h) say what
// they are. Included once for each kind of processor, so without a guard.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

template <class T>
struct Colours {
    Vec<Tag<T>> row, green, cross;  // the colour of the row, and that of the rows beside it
};

/// The samples around a vector of columns.
template <class T>
class Around {
  public:
    explicit HWY_INLINE Around(const RowJob<T>& job) : green_sites(every_other(Tag<T>(), job.green_first)), job_(job) {}

    HWY_INLINE void go_to(std::size_t x) { x_ = static_cast<std::ptrdiff_t>(x); }
    HWY_INLINE Vec<Tag<T>> raw(int dy, std::ptrdiff_t dx) const { return hn::LoadU(Tag<T>(), job_.raw[dy] + x_ + dx); }
    HWY_INLINE Vec<Tag<T>> green(int dy, int dx) const { return hn::LoadU(Tag<T>(), job_.green[dy] + x_ + dx); }
    HWY_INLINE std::ptrdiff_t left() const { return job_.left; }
    template <class V>
    HWY_INLINE V at_green(V there, V elsewhere) const {
        return hn::IfVecThenElse(green_sites, there, elsewhere);
    }

    const Vec<Tag<T>> green_sites;

  private:
    const RowJob<T> job_;
    std::ptrdiff_t x_ = 0;
};

struct AllSites {
    static HWY_INLINE std::size_t first_column(bool) { return 0; }
};

struct Grey : AllSites {
    template <class T>
    static HWY_INLINE Colours<T> colours(const Around<T>& at) {
        const auto own = at.raw(0, 0);
        return {own, own, own};
    }
};

struct Nearest : AllSites {
    template <class T>
    static HWY_INLINE Colours<T> colours(const Around<T>& at) {
        const auto own = at.raw(0, 0), left = at.raw(0, at.left());
        const auto above = at.raw(-1, 0), above_left = at.raw(-1, at.left());
        return {at.at_green(left, own), at.at_green(own, left), at.at_green(above, above_left)};
    }
};

struct Quelt : AllSites {
    template <class T>
    static HWY_INLINE Colours<T> colours(const Around<T>& at) {
        const auto own = at.raw(0, 0), left = at.raw(0, at.left());
        const auto above = at.raw(-1, 0), above_left = at.raw(-1, at.left());
        return {at.at_green(left, own), average(Tag<T>(), at.at_green(above_left, above), at.at_green(own, left)),
                at.at_green(above, above_left)};
    }
};

template <bool kRim>
struct EdgeDirected : AllSites {
    template <class V>
    struct Averages {
        V beside, over, green;
    };
    template <class T>
    static HWY_INLINE auto averages(const Around<T>& at) {
        const Tag<T> d;
        const auto left = at.raw(0, -1), right = at.raw(0, 1), above = at.raw(-1, 0), below = at.raw(1, 0);
        const auto beside_lost = lost(d, left, right), over_lost = lost(d, above, below);
        const auto beside = hn::Sub(hn::AverageRound(left, right), beside_lost);
        const auto over = hn::Sub(hn::AverageRound(above, below), over_lost);
        using V = Vec<Tag<T>>;
        if constexpr (kRim) return Averages<V>{beside, over, beside};
        const auto down = difference(above, below), across = difference(left, right);
        const auto all = average_of(d, beside, over, hn::And(beside_lost, over_lost));
        const auto along = hn::IfThenElse(hn::Max(down, across) == down, beside, over);
        return Averages<V>{beside, over, hn::IfThenElse(down == across, all, along)};
    }
    template <class T>
    static HWY_INLINE Vec<Tag<T>> greens(const Around<T>& at) {
        return at.at_green(at.raw(0, 0), averages(at).green);
    }
    template <class T>
    static HWY_INLINE Colours<T> colours(const Around<T>& at) {
        const Tag<T> d;
        const auto a = averages(at);
        const auto own = at.raw(0, 0), above_left = at.raw(-1, -1), above_right = at.raw(-1, 1);
        const auto below_left = at.raw(1, -1), below_right = at.raw(1, 1);
        const auto above_lost = lost(d, above_left, above_right), below_lost = lost(d, below_left, below_right);
        const auto diagonal =
            average_of(d, hn::Sub(hn::AverageRound(above_left, above_right), above_lost),
                       hn::Sub(hn::AverageRound(below_left, below_right), below_lost), hn::And(above_lost, below_lost));
        return {at.at_green(a.beside, own), at.at_green(own, a.green), at.at_green(a.over, diagonal)};
    }
};

// Signed lanes of Wide; the average is of two samples. `/` truncates toward zero: what is negative is raised before the
// shift, which rounds down.

template <class D, class V>
HWY_INLINE V quarter(D d, V v) {
    constexpr int kSignToRaise = sizeof(hn::TFromD<D>) * 8 - 2;  // -1 becomes 3, if small
    const hn::RebindToUnsigned<D> du;
    return hn::ShiftRight<2>(hn::Add(v, hn::BitCast(d, hn::ShiftRight<kSignToRaise>(hn::BitCast(du, v)))));
}
template <class D, class V>
HWY_INLINE V rounded_average(D d, V a, V b) {
    if constexpr (sizeof(hn::TFromD<D>) == 2) {
        const hn::RebindToUnsigned<D> du;
        return hn::BitCast(d, hn::AverageRound(hn::BitCast(du, a), hn::BitCast(du, b)));
    } else {
        return hn::ShiftRight<1>(hn::Add(hn::Add(a, b), hn::Set(d, 1)));
    }
}
template <class D, class V>
HWY_INLINE V corrected(D d, V a, V b, V second_difference) {
    return hn::Add(rounded_average(d, a, b), quarter(d, hn::Add(second_difference, hn::Set(d, 1))));
}
template <class V>
HWY_INLINE V second_difference(V centre, V a, V b) {
    return hn::Sub(hn::Add(centre, centre), hn::Add(a, b));
}
template <class V>
HWY_INLINE V change(V second_difference, V a, V b) {
    return hn::Add(hn::Abs(second_difference), hn::Abs(hn::Sub(a, b)));
}
/// Good for a result that is clamped: the average of two estimates is rounded down, where `/` would end at 0.
template <class V>
HWY_INLINE V smoother(V change_1, V estimate_1, V change_2, V estimate_2) {
    const V half = hn::ShiftRight<1>(hn::Add(estimate_1, estimate_2));
    return hn::IfThenElse(change_1 == change_2, half, hn::IfThenElse(change_1 < change_2, estimate_1, estimate_2));
}
/// Sites that lack green are the even ones here.
struct Zurno {
    static HWY_INLINE std::size_t first_column(bool green_first) { return green_first; }

    template <class T>
    static HWY_INLINE Vec<Tag<T>> greens(const Around<T>& at) {
        const Tag<T> d;
        const Wide<Tag<T>> wide;
        const auto before = at.raw(0, -2), here = at.raw(0, 0), after = at.raw(0, 2);
        const auto own = even(d, here), left = odd(d, before), right = odd(d, here);
        const auto above = even(d, at.raw(-1, 0)), below = even(d, at.raw(1, 0));
        const auto across = second_difference(own, even(d, before), even(d, after));
        const auto down = second_difference(own, even(d, at.raw(-2, 0)), even(d, at.raw(2, 0)));
        const auto green = smoother(change(across, left, right), corrected(wide, left, right, across),
                                    change(down, above, below), corrected(wide, above, below, down));
        return joined(d, green, right);
    }

    template <class T>
    static HWY_INLINE Colours<T> colours(const Around<T>& at) {
        const Tag<T> d;
        const Wide<Tag<T>> wide;
        // Around the site that lacks green, and around the green site to the right of it.
        const auto own = even(d, at.raw(0, 0)), next = even(d, at.raw(0, 2));
        const auto above_left = even(d, at.raw(-1, -1)), above_right = even(d, at.raw(-1, 1));
        const auto below_left = even(d, at.raw(1, -1)), below_right = even(d, at.raw(1, 1));
        const auto greens = at.green(0, 0);
        const auto green_own = even(d, greens), green_beside = odd(d, greens), green_next = even(d, at.green(0, 2));
        const auto green_above_left = even(d, at.green(-1, -1)), green_above_right = even(d, at.green(-1, 1));
        const auto green_below_left = even(d, at.green(1, -1)), green_below_right = even(d, at.green(1, 1));

        const auto falling = second_difference(green_own, green_above_left, green_below_right);
        const auto rising = second_difference(green_own, green_below_left, green_above_right);
        const auto cross =
            smoother(change(falling, above_left, below_right), corrected(wide, above_left, below_right, falling),
                     change(rising, above_right, below_left), corrected(wide, above_right, below_left, rising));
        const auto row_at_green = corrected(wide, own, next, second_difference(green_beside, green_own, green_next));
        const auto cross_at_green = corrected(wide, above_right, below_right,
                                              second_difference(green_beside, green_above_right, green_below_right));
        return {joined(d, own, row_at_green), greens, joined(d, cross, cross_at_green)};
    }
};

template <class T, class Rule>
void fill_greens(T* out, const RowJob<T>& job) {
    Around<T> at(job);
    for (std::size_t x = Rule::first_column(job.green_first); x < job.width; x += hn::Lanes(Tag<T>())) {
        at.go_to(x);
        prefetch(job.next_samples, x * job.sample_bytes, 1);
        hn::StoreU(Rule::greens(at), Tag<T>(), out + x);
    }
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
