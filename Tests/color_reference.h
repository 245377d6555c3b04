// SPDX-License-Identifier: Apache-2.0
// The demosaic methods a second time, as plain as they can be: colour_at() says what one channel of one pixel
// is, deciding everything on the spot. Slow, and with nothing in common with the kernels that are held to it.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

namespace reference {

/// The samples of a picture and what they are of, by column and row of whatever a method calls left and above.
struct Mosaic {
    struct Cell {
        int value = 0;
        bool red_row = false, green = false;
    };
    int width, height, maximum;
    std::vector<Cell> cells;

    Mosaic(int w, int h, int max) : width(w), height(h), maximum(max), cells(static_cast<std::size_t>(w * h)) {}
    Cell& cell(int x, int y) { return cells[static_cast<std::size_t>(y * width + x)]; }
    const Cell& cell(int x, int y) const { return cells.at(static_cast<std::size_t>(y * width + x)); }

    int value(int x, int y) const { return cell(x, y).value; }
    int colour(int x, int y) const { return cell(x, y).green ? 1 : cell(x, y).red_row ? 0 : 2; }
    int plane(int x, int y) const { return (cell(x, y).red_row ? 0 : 2) + (cell(x, y).green ? 1 : 0); }
    bool has(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    bool border(int x, int y) const { return x == 0 || y == 0 || x == width - 1 || y == height - 1; }

    /// The truncated mean of those places that exist.
    int mean(std::initializer_list<std::pair<int, int>> places) const {
        int sum = 0, count = 0;
        for (const auto& [x, y] : places) {
            if (has(x, y)) sum += value(x, y), ++count;
        }
        return sum / count;
    }
};

enum class Method { kOwn, kOwnPlane, kGrey, kNearest, kEdge, kEdgeHalvedCorners, kZurno, kQuelt, kFourColour };

inline int nearest(const Mosaic& m, int x, int y, int channel) {
    const int other_x = x > 0 ? x - 1 : 1, other_y = y > 0 ? y - 1 : 1;
    if (channel == 1 && x == 0 && y > 0) return m.value(0, y - 1);
    if (m.colour(other_x, y) == channel) return m.value(other_x, y);
    return m.colour(x, other_y) == channel ? m.value(x, other_y) : m.value(other_x, other_y);
}

inline int edge_green(const Mosaic& m, int x, int y) {
    const int across = std::abs(m.value(x - 1, y) - m.value(x + 1, y));
    const int down = std::abs(m.value(x, y - 1) - m.value(x, y + 1));
    if (down > across) return m.mean({{x - 1, y}, {x + 1, y}});
    if (across > down) return m.mean({{x, y - 1}, {x, y + 1}});
    return m.mean({{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}});
}

inline int edge(const Mosaic& m, int x, int y, int channel, bool halved_corners) {
    const bool row_end = x == 0 || x == m.width - 1, column_end = y == 0 || y == m.height - 1;
    const bool row_colour = channel == (m.cell(x, y).red_row ? 0 : 2);
    if (m.colour(x, y) == 1) {
        return row_colour ? m.mean({{x - 1, y}, {x + 1, y}}) : m.mean({{x, y - 1}, {x, y + 1}});
    }
    if (channel != 1) return m.mean({{x - 1, y - 1}, {x + 1, y - 1}, {x - 1, y + 1}, {x + 1, y + 1}});
    if (!row_end && !column_end) return edge_green(m, x, y);
    if (!row_end) return m.mean({{x - 1, y}, {x + 1, y}});
    if (!column_end) return m.mean({{x, y - 1}, {x, y + 1}});
    const int beside = m.value(x == 0 ? 1 : x - 1, y), over = m.value(x, y == 0 ? 1 : y - 1);
    return halved_corners && m.colour(x, y) == 0 ? beside / 2 + over / 2 : (beside + over) / 2;
}

/// (L + 1) / 4, toward zero on both sides.
inline int quarter(int l) {
    return l + 1 >= 0 ? (l + 1) >> 2 : -((-l - 1) >> 2);
}

/// A value along one direction, and how much changes along it.
struct Estimate {
    int change, value;
};

/// Adds up the values whose change is not the larger one; halves the sum of two.
inline int better(Estimate a, Estimate b) {
    int v = 0;
    if (a.change <= b.change) v += a.value;
    if (b.change <= a.change) v += b.value;
    if (a.change != b.change) return v;
    return v < 0 ? -(-v / 2) : v / 2;
}

inline int clamp(const Mosaic& m, int v) {
    return std::min(std::max(v, 0), m.maximum);
}

inline int zurno_green(const Mosaic& m, int x, int y) {
    if (m.colour(x, y) == 1) return m.value(x, y);
    if (m.border(x, y)) return edge(m, x, y, 1, false);
    if (x == 1 || y == 1 || x == m.width - 2 || y == m.height - 2) return edge_green(m, x, y);
    const auto along = [&](int dx, int dy) {
        const int a = m.value(x - dx, y - dy), b = m.value(x + dx, y + dy);
        const int bend = 2 * m.value(x, y) - m.value(x - 2 * dx, y - 2 * dy) - m.value(x + 2 * dx, y + 2 * dy);
        return Estimate{std::abs(bend) + std::abs(a - b), (a + b + 1) / 2 + quarter(bend)};
    };
    return clamp(m, better(along(1, 0), along(0, 1)));
}

inline int zurno(const Mosaic& m, int x, int y, int channel) {
    if (channel == 1) return zurno_green(m, x, y);
    if (m.border(x, y)) return edge(m, x, y, channel, false);
    const auto along = [&](int dx, int dy) {
        const int a = m.value(x - dx, y - dy), b = m.value(x + dx, y + dy);
        const int bend = 2 * zurno_green(m, x, y) - zurno_green(m, x - dx, y - dy) - zurno_green(m, x + dx, y + dy);
        return Estimate{std::abs(bend) + std::abs(a - b), (a + b + 1) / 2 + quarter(bend)};
    };
    if (m.colour(x, y) != 1) return clamp(m, better(along(1, 1), along(-1, 1)));
    return clamp(m, (m.colour(x - 1, y) == channel ? along(1, 0) : along(0, 1)).value);
}

inline int quelt(const Mosaic& m, int x, int y, int channel) {
    const bool green = m.colour(x, y) == 1, row_colour = channel == (m.cell(x, y).red_row ? 0 : 2);
    if (x == 0 && y == 0) {
        if (green) return channel == 1 ? m.value(0, 0) : row_colour ? m.value(1, 0) : m.value(0, 1);
        return channel == 1 ? m.mean({{1, 0}, {0, 1}}) : row_colour ? m.value(0, 0) : m.value(1, 1);
    }
    if (y == 0) {
        if (green) return channel == 1 ? m.value(x, 0) : row_colour ? m.value(x - 1, 0) : m.value(x, 1);
        return channel == 1 ? m.value(x - 1, 0) : row_colour ? m.value(x, 0) : m.value(x - 1, 1);
    }
    if (x == 0) {
        if (green) return channel == 1 ? m.value(0, y) : row_colour ? m.value(1, y) : m.value(0, y - 1);
        return channel == 1 ? m.value(0, y - 1) : row_colour ? m.value(0, y) : m.value(1, y - 1);
    }
    if (channel == 1) return green ? m.mean({{x - 1, y - 1}, {x, y}}) : m.mean({{x, y - 1}, {x - 1, y}});
    if (green) return row_colour ? m.value(x - 1, y) : m.value(x, y - 1);
    return row_colour ? m.value(x, y) : m.value(x - 1, y - 1);
}

/// The mean of all samples of the plane around the pixel.
inline int four_colour(const Mosaic& m, int x, int y, int plane) {
    int sum = 0, count = 0;
    for (int v = y - 1; v <= y + 1; ++v) {
        for (int u = x - 1; u <= x + 1; ++u) {
            if (m.has(u, v) && m.plane(u, v) == plane) sum += m.value(u, v), ++count;
        }
    }
    return sum / count;
}

/// The value of a channel, or -1 where it is not written.
inline int colour_at(const Mosaic& m, Method method, int x, int y, int channel) {
    const bool own = m.colour(x, y) == channel, own_plane = m.plane(x, y) == channel;
    switch (method) {
        case Method::kOwn: return own ? m.value(x, y) : -1;
        case Method::kOwnPlane: return own_plane ? m.value(x, y) : -1;
        case Method::kGrey: return m.value(x, y);
        case Method::kQuelt: return quelt(m, x, y, channel);
        case Method::kFourColour: return own_plane ? m.value(x, y) : four_colour(m, x, y, channel);
        case Method::kNearest: return own ? m.value(x, y) : nearest(m, x, y, channel);
        case Method::kZurno: return own ? m.value(x, y) : zurno(m, x, y, channel);
        default: return own ? m.value(x, y) : edge(m, x, y, channel, method == Method::kEdgeHalvedCorners);
    }
}

}  // namespace reference
