#!/usr/bin/env python3
"""Draws the tree and tool bar icons of Argent Password Manager.

Run from anywhere:  python3 resources/icons/make_icons.py
The PNG files are written next to this script.  Only the Python standard
library is used, and the output is byte-for-byte reproducible.

Every icon is described as a few shapes given by signed distance functions
(negative inside, positive outside) in a small design grid: 16 units for the
tree icons, 24 units for the tool bar icons.  Each shape is painted in turn;
pixels near an edge are supersampled 8x8 for anti-aliasing.  Outlines are one
unit wide and sit on half-unit coordinates, so they land on whole pixels both
at 1x and at 2x.
"""

import math
import os
import struct
import sys
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))

# ---------------------------------------------------------------- palette

BLUE, BLUE_L, BLUE_D = "#4a90e2", "#a9d0f7", "#1d5ba6"
GOLD, GOLD_L, GOLD_D = "#f3c04f", "#fde39a", "#a4740f"
FOLD, FOLD_B = "#f5c95c", "#e0a73c"          # folder front / back
GREEN, GREEN_L, GREEN_D = "#3fae5a", "#7fd394", "#1c7134"
RED, RED_D = "#e0483c", "#9a2119"
GREY, GREY_L, GREY_D = "#9aa6b2", "#e3e8ee", "#4f5b67"
PAPER, WHITE = "#f8fafc", "#ffffff"
DARK = "#36424f"


def rgba(c):
    """'#rrggbb' or '#rrggbbaa' -> (r, g, b, a) floats in 0..1."""
    c = c.lstrip("#")
    v = [int(c[i:i + 2], 16) / 255.0 for i in range(0, len(c), 2)]
    if len(v) == 3:
        v.append(1.0)
    return tuple(v)


class Linear:
    """Linear gradient from colour c0 at (x0, y0) to c1 at (x1, y1)."""

    def __init__(self, x0, y0, c0, x1, y1, c1):
        self.p0 = (x0, y0)
        dx, dy = x1 - x0, y1 - y0
        n = dx * dx + dy * dy
        self.d = (dx / n, dy / n)
        self.c0, self.c1 = rgba(c0), rgba(c1)

    def at(self, x, y):
        t = (x - self.p0[0]) * self.d[0] + (y - self.p0[1]) * self.d[1]
        t = min(1.0, max(0.0, t))
        return tuple(a + (b - a) * t for a, b in zip(self.c0, self.c1))


def vgrad(y0, c0, y1, c1):
    return Linear(0, y0, c0, 0, y1, c1)


# ---------------------------------------------------------------- shapes
#
# Every shape offers sdf(x, y) and a bounding box.  "exact" marks a true
# distance; combinations only give a bound, which is enough for filling but
# not for outlining, so the painter samples those everywhere.

class Shape:
    exact = True
    safe = True      # may the painter trust the distance to skip sampling?


class Circle(Shape):
    def __init__(self, cx, cy, r):
        self.cx, self.cy, self.r = cx, cy, r
        self.bbox = (cx - r, cy - r, cx + r, cy + r)

    def sdf(self, x, y):
        return math.hypot(x - self.cx, y - self.cy) - self.r


class Box(Shape):
    """Axis-aligned rectangle with corner radius r."""

    def __init__(self, x0, y0, x1, y1, r=0.0):
        self.cx, self.cy = (x0 + x1) / 2, (y0 + y1) / 2
        self.hx, self.hy = (x1 - x0) / 2, (y1 - y0) / 2
        self.r = r
        self.bbox = (x0, y0, x1, y1)

    def sdf(self, x, y):
        r = self.r
        qx = abs(x - self.cx) - self.hx + r
        qy = abs(y - self.cy) - self.hy + r
        out = math.hypot(max(qx, 0.0), max(qy, 0.0))
        return out + min(max(qx, qy), 0.0) - r


def _seg_dist(px, py, ax, ay, bx, by):
    dx, dy = bx - ax, by - ay
    n = dx * dx + dy * dy
    t = 0.0 if n == 0 else max(0.0, min(1.0, ((px - ax) * dx + (py - ay) * dy) / n))
    return math.hypot(px - ax - t * dx, py - ay - t * dy)


def _bbox_of(points):
    xs = [p[0] for p in points]
    ys = [p[1] for p in points]
    return (min(xs), min(ys), max(xs), max(ys))


class Poly(Shape):
    """Closed polygon, even-odd filled."""

    def __init__(self, points):
        self.pts = list(points)
        self.bbox = _bbox_of(self.pts)

    def sdf(self, x, y):
        pts = self.pts
        n = len(pts)
        d = float("inf")
        inside = False
        for i in range(n):
            ax, ay = pts[i]
            bx, by = pts[(i + 1) % n]
            d = min(d, _seg_dist(x, y, ax, ay, bx, by))
            if (ay > y) != (by > y):
                if x < ax + (y - ay) * (bx - ax) / (by - ay):
                    inside = not inside
        return -d if inside else d


class Line(Shape):
    """Open polyline of width w with round caps and joins."""

    def __init__(self, points, w):
        self.pts = list(points)
        self.w = w
        x0, y0, x1, y1 = _bbox_of(self.pts)
        h = w / 2
        self.bbox = (x0 - h, y0 - h, x1 + h, y1 + h)

    def sdf(self, x, y):
        pts = self.pts
        d = min(_seg_dist(x, y, *pts[i], *pts[i + 1]) for i in range(len(pts) - 1))
        return d - self.w / 2


def ellipse_pts(cx, cy, rx, ry, a0=0.0, a1=360.0, n=48):
    """Points on an ellipse from angle a0 to a1 (degrees, y pointing down)."""
    out = []
    for i in range(n + 1):
        a = math.radians(a0 + (a1 - a0) * i / n)
        out.append((cx + rx * math.cos(a), cy + ry * math.sin(a)))
    return out


def Ellipse(cx, cy, rx, ry):
    return Poly(ellipse_pts(cx, cy, rx, ry, n=64)[:-1])


def Arc(cx, cy, r, a0, a1, w):
    return Line(ellipse_pts(cx, cy, r, r, a0, a1, n=32), w)


def bezier(p0, p1, p2, p3, n=16):
    out = []
    for i in range(n + 1):
        t = i / n
        u = 1 - t
        out.append((u * u * u * p0[0] + 3 * u * u * t * p1[0] + 3 * u * t * t * p2[0] + t * t * t * p3[0],
                    u * u * u * p0[1] + 3 * u * u * t * p1[1] + 3 * u * t * t * p2[1] + t * t * t * p3[1]))
    return out


class Union(Shape):
    exact = False

    def __init__(self, *parts):
        self.parts = parts
        self.bbox = (min(p.bbox[0] for p in parts), min(p.bbox[1] for p in parts),
                     max(p.bbox[2] for p in parts), max(p.bbox[3] for p in parts))

    def sdf(self, x, y):
        return min(p.sdf(x, y) for p in self.parts)


class Inter(Shape):
    exact = False

    def __init__(self, a, b):
        self.a, self.b = a, b
        self.bbox = (max(a.bbox[0], b.bbox[0]), max(a.bbox[1], b.bbox[1]),
                     min(a.bbox[2], b.bbox[2]), min(a.bbox[3], b.bbox[3]))

    def sdf(self, x, y):
        return max(self.a.sdf(x, y), self.b.sdf(x, y))


class Sub(Shape):
    """a with b cut out of it."""
    exact = False

    def __init__(self, a, *cut):
        self.a, self.cut = a, cut
        self.bbox = a.bbox

    def sdf(self, x, y):
        return max([self.a.sdf(x, y)] + [-c.sdf(x, y) for c in self.cut])


class Stroke(Shape):
    """Band of width w centred on the outline of s."""

    def __init__(self, s, w):
        self.s, self.w = s, w
        h = w / 2
        b = s.bbox
        self.bbox = (b[0] - h, b[1] - h, b[2] + h, b[3] + h)
        self.exact = False
        self.safe = s.exact

    def sdf(self, x, y):
        return abs(self.s.sdf(x, y)) - self.w / 2


class Grow(Shape):
    """s widened by d on every side (shrunk when d is negative)."""

    def __init__(self, s, d):
        self.s, self.d = s, d
        b = s.bbox
        self.bbox = (b[0] - d, b[1] - d, b[2] + d, b[3] + d)
        self.exact = False
        self.safe = s.exact

    def sdf(self, x, y):
        return self.s.sdf(x, y) - self.d


class Rotate(Shape):
    """s turned by deg degrees (clockwise on screen) around (cx, cy)."""

    def __init__(self, s, deg, cx, cy):
        self.s, self.cx, self.cy = s, cx, cy
        a = math.radians(deg)
        self.c, self.sn = math.cos(a), math.sin(a)
        self.exact, self.safe = s.exact, s.safe
        x0, y0, x1, y1 = s.bbox
        corners = [self._fwd(x, y) for x in (x0, x1) for y in (y0, y1)]
        self.bbox = _bbox_of(corners)

    def _fwd(self, x, y):
        dx, dy = x - self.cx, y - self.cy
        return (self.cx + dx * self.c - dy * self.sn, self.cy + dx * self.sn + dy * self.c)

    def sdf(self, x, y):
        dx, dy = x - self.cx, y - self.cy
        return self.s.sdf(self.cx + dx * self.c + dy * self.sn, self.cy - dx * self.sn + dy * self.c)


class Move(Shape):
    def __init__(self, s, dx, dy):
        self.s, self.dx, self.dy = s, dx, dy
        self.exact, self.safe = s.exact, s.safe
        b = s.bbox
        self.bbox = (b[0] + dx, b[1] + dy, b[2] + dx, b[3] + dy)

    def sdf(self, x, y):
        return self.s.sdf(x - self.dx, y - self.dy)


# ---------------------------------------------------------------- painter

SS = 8  # samples per pixel side at edges


class Canvas:
    def __init__(self, size, grid):
        self.size = size
        self.scale = size / grid
        self.px = [[0.0, 0.0, 0.0, 0.0] for _ in range(size * size)]   # premultiplied

    def _coverage(self, shape):
        """Yields (pixel index, coverage) for every pixel the shape touches."""
        s = self.scale
        x0, y0, x1, y1 = shape.bbox
        i0, i1 = max(0, int(math.floor(x0 * s)) - 1), min(self.size, int(math.ceil(x1 * s)) + 1)
        j0, j1 = max(0, int(math.floor(y0 * s)) - 1), min(self.size, int(math.ceil(y1 * s)) + 1)
        edge = 0.75 / s
        offs = [(k + 0.5) / SS / s for k in range(SS)]
        for j in range(j0, j1):
            for i in range(i0, i1):
                cx, cy = (i + 0.5) / s, (j + 0.5) / s
                d = shape.sdf(cx, cy)
                if d > edge:
                    continue
                if d < -edge and shape.safe:
                    yield j * self.size + i, 1.0, cx, cy
                    continue
                bx, by = i / s, j / s
                n = 0
                for oy in offs:
                    for ox in offs:
                        if shape.sdf(bx + ox, by + oy) <= 0:
                            n += 1
                if n:
                    yield j * self.size + i, n / (SS * SS), cx, cy

    def fill(self, shape, paint):
        grad = paint if isinstance(paint, Linear) else None
        col = None if grad else rgba(paint)
        for k, cov, cx, cy in self._coverage(shape):
            r, g, b, a = grad.at(cx, cy) if grad else col
            a *= cov
            p = self.px[k]
            inv = 1.0 - a
            p[0] = r * a + p[0] * inv
            p[1] = g * a + p[1] * inv
            p[2] = b * a + p[2] * inv
            p[3] = a + p[3] * inv

    def erase(self, shape):
        for k, cov, _, _ in self._coverage(shape):
            p = self.px[k]
            for c in range(4):
                p[c] *= 1.0 - cov

    def draw(self, shape, fill=None, line=None, w=1.0):
        """Fills shape, then outlines it with a band of width w."""
        if fill is not None:
            self.fill(shape, fill)
        if line is not None:
            self.fill(Stroke(shape, w), line)

    def png(self, path):
        rows = []
        for j in range(self.size):
            row = bytearray(b"\x00")
            for i in range(self.size):
                r, g, b, a = self.px[j * self.size + i]
                if a <= 1e-6:
                    row += b"\x00\x00\x00\x00"
                    continue
                row += bytes(min(255, int(round(v / a * 255))) for v in (r, g, b))
                row.append(min(255, int(round(a * 255))))
            rows.append(bytes(row))
        write_png(path, self.size, self.size, b"".join(rows))


def write_png(path, w, h, raw):
    def chunk(tag, data):
        c = struct.pack(">I", len(data)) + tag + data
        return c + struct.pack(">I", zlib.crc32(tag + data) & 0xFFFFFFFF)

    data = b"\x89PNG\r\n\x1a\n"
    data += chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 6, 0, 0, 0))
    data += chunk(b"IDAT", zlib.compress(raw, 9))
    data += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(data)


# ---------------------------------------------------------------- parts
# Reusable pieces, drawn in whatever grid the calling icon uses.

def folder_closed(cv, x0, y0, x1, y1):
    tab = (x1 - x0) * 0.36
    back = Poly([(x0, y0), (x0 + tab, y0), (x0 + tab + 1.5, y0 + 1.5),
                 (x1, y0 + 1.5), (x1, y1), (x0, y1)])
    cv.draw(back, FOLD_B, GOLD_D)
    front = Box(x0, y0 + 3, x1, y1, 0.5)
    cv.draw(front, vgrad(y0 + 3, GOLD_L, y1, FOLD), GOLD_D)


def folder_open(cv, x0, y0, x1, y1):
    tab = (x1 - x0) * 0.36
    back = Poly([(x0, y0), (x0 + tab, y0), (x0 + tab + 1.5, y0 + 1.5),
                 (x1 - 1, y0 + 1.5), (x1 - 1, y1), (x0, y1)])
    cv.draw(back, FOLD_B, GOLD_D)
    cv.draw(Box(x0 + 2, y0 + 1, x1 - 3, y1 - 3), PAPER, GREY_D)
    front = Poly([(x0 + 2, y0 + 4), (x1 + 1, y0 + 4), (x1 - 1, y1), (x0, y1)])
    cv.draw(front, vgrad(y0 + 4, GOLD_L, y1, FOLD), GOLD_D)


def record_card(cv, x0, y0, x1, y1, dot_r):
    """White card with a blue title strip and a row of password dots."""
    card = Box(x0, y0, x1, y1, 1.5)
    cv.fill(card, PAPER)
    strip = (y1 - y0) * 0.3
    cv.fill(Inter(card, Box(x0, y0, x1, y0 + strip)), vgrad(y0, BLUE_L, y0 + strip, BLUE))
    cv.fill(Line([(x0, y0 + strip), (x1, y0 + strip)], 1.0), BLUE_D)
    cv.draw(card, None, GREY_D)
    cy = (y0 + strip + y1) / 2 + 0.25
    step = (x1 - x0) / 4
    for k in (1, 2, 3):
        cv.fill(Circle(x0 + step * k, cy, dot_r), DARK)


def person(cv, cx, top, bottom, head_r):
    """Head and shoulders; cx is the middle, top the crown, bottom the base."""
    half = head_r * 1.9
    sh_top = top + head_r * 2 + 1.0
    body = Inter(Box(cx - half, sh_top, cx + half, bottom + 8, half * 0.75),
                 Box(cx - half - 1, sh_top - 1, cx + half + 1, bottom))
    cv.draw(body, vgrad(sh_top, BLUE, bottom, BLUE_D), BLUE_D)
    cv.draw(Circle(cx, top + head_r, head_r), vgrad(top, BLUE_L, top + 2 * head_r, BLUE), BLUE_D)


def badge_plus(cv, cx, cy, r):
    cv.erase(Circle(cx, cy, r + 1.2))
    cv.draw(Circle(cx, cy, r), vgrad(cy - r, GREEN_L, cy + r, GREEN), GREEN_D)
    a = r * 0.55
    cv.fill(Union(Box(cx - a, cy - 0.9, cx + a, cy + 0.9, 0.3),
                  Box(cx - 0.9, cy - a, cx + 0.9, cy + a, 0.3)), WHITE)


def badge_cross(cv, cx, cy, r):
    cv.erase(Circle(cx, cy, r + 1.2))
    cv.draw(Circle(cx, cy, r), vgrad(cy - r, "#f27b70", cy + r, RED), RED_D)
    a = r * 0.5
    cv.fill(Union(Line([(cx - a, cy - a), (cx + a, cy + a)], 1.8),
                  Line([(cx - a, cy + a), (cx + a, cy - a)], 1.8)), WHITE)


def star_pts(cx, cy, ro, ri, n=5):
    pts = []
    for k in range(2 * n):
        a = math.radians(-90 + 180.0 * k / n)
        r = ro if k % 2 == 0 else ri
        pts.append((cx + r * math.cos(a), cy + r * math.sin(a)))
    return pts


# ---------------------------------------------------------------- tree icons (16 grid)

def t_db(cv):
    # A database drum: two stacked disks.
    body = Union(Box(2.5, 3.5, 13.5, 12.5), Ellipse(8, 3.5, 5.5, 2), Ellipse(8, 12.5, 5.5, 2))
    cv.draw(body, Linear(2.5, 0, BLUE_L, 13.5, 0, BLUE_D), BLUE_D)
    cv.fill(Line(ellipse_pts(8, 8, 5.5, 2, 0, 180), 1.0), BLUE_D)
    cv.draw(Ellipse(8, 3.5, 5.5, 2), Linear(2.5, 0, WHITE, 13.5, 0, BLUE_L), BLUE_D)


def t_record(cv):
    record_card(cv, 1.5, 2.5, 14.5, 13.5, 1.15)


def t_folder(cv):
    folder_closed(cv, 1.5, 2.5, 14.5, 13.5)


def key_shape(length, ring_r, hole_r, shaft_h, cx=8, cy=8, deg=45, grid=16):
    """A key drawn lying flat, then turned: bow on the left, bit on the right."""
    left = cx - length / 2
    ring_c = left + ring_r
    shaft = Box(ring_c + ring_r - 0.5, cy - shaft_h / 2, left + length, cy + shaft_h / 2)
    tooth_h = shaft_h * 0.9
    teeth = Union(Box(left + length - shaft_h * 2.6, cy, left + length - shaft_h * 1.9, cy + shaft_h / 2 + tooth_h),
                  Box(left + length - shaft_h * 1.1, cy, left + length, cy + shaft_h / 2 + tooth_h))
    bow = Circle(ring_c, cy, ring_r)
    key = Sub(Union(bow, shaft, teeth), Circle(ring_c - ring_r * 0.25, cy, hole_r))
    return Rotate(key, deg, cx, cy)


def t_key(cv):
    key = key_shape(18.5, 3.4, 1.25, 2.4, cx=8.2, cy=8.0)
    cv.fill(Grow(key, 0.9), GOLD_D)
    cv.fill(key, Linear(2, 2, GOLD_L, 12, 12, GOLD))


def t_globe(cv):
    ball = Circle(8, 8, 6.5)
    cv.fill(ball, Linear(3, 3, "#7fb6f0", 13, 13, BLUE_D))
    inner = Circle(8, 8, 6.3)
    lines = Union(Stroke(Ellipse(8, 8, 2.6, 6.5), 0.9),
                  Line([(1, 8), (15, 8)], 0.9),
                  Line([(1, 4.6), (15, 4.6)], 0.8),
                  Line([(1, 11.4), (15, 11.4)], 0.8))
    cv.fill(Inter(lines, inner), "#e8f3fdee")
    cv.draw(ball, None, BLUE_D)


def t_mail(cv):
    env = Box(1.5, 3.5, 14.5, 12.5, 1.0)
    cv.draw(env, vgrad(3.5, WHITE, 12.5, GREY_L), GREY_D)
    flap = Poly([(1.5, 3.5), (14.5, 3.5), (8, 9)])
    cv.fill(Inter(flap, env), "#d6dde5")
    cv.fill(Line([(2, 4), (8, 9), (14, 4)], 1.0), GREY_D)
    cv.draw(env, None, GREY_D)


def t_card(cv):
    card = Box(0.5, 3.5, 15.5, 12.5, 1.5)
    cv.fill(card, Linear(0, 3, GREEN_L, 16, 13, GREEN_D))
    cv.fill(Inter(card, Box(0, 5.0, 16, 7.0)), DARK)
    cv.draw(Box(2.5, 8.5, 5.5, 10.5, 0.5), GOLD_L, GOLD_D, 0.8)
    cv.fill(Box(8, 9, 13.5, 10), "#e9f7ecdd")
    cv.draw(card, None, GREEN_D)


def t_cart(cv):
    basket = Poly([(3.6, 4.5), (14.5, 4.5), (13, 9.5), (5.2, 9.5)])
    cv.fill(basket, vgrad(4.5, BLUE_L, 9.5, BLUE))
    cv.fill(Line([(0.8, 2.2), (2.6, 2.2), (5.2, 9.5), (5.8, 11.5), (13.5, 11.5)], 1.3), DARK)
    cv.fill(Line([(3.6, 4.5), (14.5, 4.5), (13, 9.5), (5.2, 9.5)], 1.1), DARK)
    cv.fill(Line([(9.1, 4.5), (9.1, 9.5)], 0.9), DARK)
    cv.fill(Circle(6.5, 13.6, 1.4), DARK)
    cv.fill(Circle(12.5, 13.6, 1.4), DARK)


def t_computer(cv):
    cv.fill(Poly([(6.5, 11), (9.5, 11), (10.2, 13.5), (5.8, 13.5)]), GREY_D)
    cv.fill(Box(3.5, 13, 12.5, 15, 0.8), GREY_D)
    cv.fill(Box(1, 2, 15, 12, 1.2), DARK)
    cv.fill(Box(2.5, 3.5, 13.5, 10.5), Linear(2.5, 3.5, "#8cc1f5", 13.5, 10.5, BLUE_D))
    cv.fill(Poly([(2.5, 3.5), (8.5, 3.5), (2.5, 8.5)]), "#ffffff33")


def t_phone(cv):
    cv.fill(Box(4, 1, 12, 15, 1.8), DARK)
    cv.fill(Box(5, 3, 11, 12), Linear(5, 3, "#8cc1f5", 11, 12, BLUE_D))
    cv.fill(Box(6.8, 1.7, 9.2, 2.3, 0.3), GREY)
    cv.fill(Circle(8, 13.5, 0.75), GREY)


def t_chat(cv):
    bubble = Union(Box(1.5, 2.5, 14.5, 11.5, 2.5), Poly([(3.5, 10.5), (8, 10.5), (3, 14.8)]))
    cv.draw(bubble, vgrad(2.5, WHITE, 12, BLUE_L), BLUE_D)
    for x in (5, 8, 11):
        cv.fill(Circle(x, 7, 1.1), BLUE_D)


def t_lock(cv):
    shackle = Line([(4.75, 8)] + ellipse_pts(8, 5.25, 3.25, 3.25, 180, 360, 24) + [(11.25, 8)], 2.1)
    cv.fill(shackle, GREY_D)
    cv.fill(Line([(4.75, 8)] + ellipse_pts(8, 5.25, 3.25, 3.25, 180, 360, 24) + [(11.25, 8)], 0.6), GREY_L)
    body = Box(2.5, 7.5, 13.5, 14.5, 1.2)
    cv.draw(body, vgrad(7.5, GOLD_L, 14.5, GOLD), GOLD_D)
    cv.fill(Union(Circle(8, 10.3, 1.3), Poly([(7.35, 10.6), (8.65, 10.6), (9.0, 12.9), (7.0, 12.9)])), DARK)


def t_idcard(cv):
    card = Box(0.5, 2.5, 15.5, 13.5, 1.5)
    cv.draw(card, vgrad(2.5, WHITE, 13.5, GREY_L), GREY_D)
    cv.fill(Box(2.5, 4.5, 7.5, 11.5, 0.5), BLUE_L)
    photo = Box(2.5, 4.5, 7.5, 11.5, 0.5)
    cv.fill(Inter(photo, Union(Circle(5, 7, 1.5), Box(2.5, 9.2, 7.5, 13, 1.6))), BLUE_D)
    for y, x1 in ((5.5, 13.5), (8, 13.5), (10.5, 11.5)):
        cv.fill(Box(9, y - 0.5, x1, y + 0.5), GREY_D)


def t_wifi(cv):
    cx, cy = 8, 13.2
    for r in (3.5, 6.6, 9.7):
        cv.fill(Arc(cx, cy, r, 225, 315, 1.8), BLUE_D)
    cv.fill(Circle(cx, cy, 1.5), BLUE_D)


def gear_shape(cx, cy, r_body, r_tooth, tooth_w, hole_r, n=8):
    teeth = [Rotate(Box(cx - tooth_w / 2, cy - r_tooth, cx + tooth_w / 2, cy, 0.4), 360.0 * k / n, cx, cy)
             for k in range(n)]
    return Sub(Union(Circle(cx, cy, r_body), *teeth), Circle(cx, cy, hole_r))


def t_gear(cv):
    g = gear_shape(8, 8, 5.0, 7.3, 2.7, 2.2)
    cv.fill(Grow(g, 0.45), GREY_D)
    cv.fill(Grow(g, -0.45), Linear(2, 2, "#dfe5eb", 14, 14, GREY))


def t_star(cv):
    star = Poly(star_pts(8, 8.7, 7.4, 3.1))
    cv.fill(Grow(star, 0.45), GOLD_D)
    cv.fill(Grow(star, -0.45), Linear(4, 2, GOLD_L, 12, 14, GOLD))


def t_document(cv):
    page = Poly([(2.5, 1.5), (9.5, 1.5), (13.5, 5.5), (13.5, 14.5), (2.5, 14.5)])
    cv.draw(page, vgrad(1.5, WHITE, 14.5, GREY_L), GREY_D)
    cv.draw(Poly([(9.5, 1.5), (9.5, 5.5), (13.5, 5.5)]), "#d3dae2", GREY_D)
    for y, x1 in ((7.5, 11.5), (9.5, 11.5), (11.5, 9.5)):
        cv.fill(Line([(4.5, y), (x1, y)], 1.0), BLUE)
    cv.fill(Line([(4.5, 5.5), (7.5, 5.5)], 1.0), BLUE)


def t_folder_open(cv):
    folder_open(cv, 0.5, 2.5, 14.5, 13.5)


def t_house(cv):
    cv.draw(Box(3.5, 7.5, 12.5, 14.5), vgrad(7.5, WHITE, 14.5, GREY_L), GREY_D)
    cv.fill(Box(6.5, 10, 9.5, 14.5), BLUE)
    cv.fill(Line([(6.5, 14), (6.5, 10.5), (9.5, 10.5), (9.5, 14)], 1.0), BLUE_D)
    roof = Poly([(8, 1.3), (15.2, 8.3), (0.8, 8.3)])
    cv.fill(Grow(roof, 0.4), RED_D)
    cv.fill(Grow(roof, -0.5), vgrad(1.5, "#f27b70", 8.5, RED))


def t_cloud(cv):
    cloud = Union(Circle(5, 10, 3.2), Circle(9, 7.7, 4.3), Circle(12.3, 10.4, 2.9), Box(5, 9.5, 12.3, 13.3))
    cv.fill(Grow(cloud, 0.5), BLUE_D)
    cv.fill(Grow(cloud, -0.5), vgrad(3.5, WHITE, 13.5, BLUE_L))


def shield_pts(cx, top, half_w, bottom):
    right = bezier((cx + half_w, top + 2.5), (cx + half_w, top + 8), (cx + half_w * 0.6, bottom - 2.5), (cx, bottom))
    left = [(2 * cx - x, y) for x, y in reversed(right)]
    return [(cx, top), (cx + half_w, top + 2)] + right + left[1:] + [(cx - half_w, top + 2)]


def t_shield(cv):
    sh = Poly(shield_pts(8, 1.0, 6.0, 15.2))
    cv.fill(Grow(sh, 0.45), GREEN_D)
    cv.fill(Grow(sh, -0.5), Linear(3, 2, GREEN_L, 13, 14, GREEN))
    cv.fill(Line([(5, 8.2), (7.2, 10.5), (11.2, 5.6)], 1.7), WHITE)


# ---------------------------------------------------------------- tool bar icons (24 grid)

def tb_select_user(cv):
    person(cv, 12, 2.0, 21.5, 4.5)


def tb_add_user(cv):
    person(cv, 10, 1.5, 20.5, 4.2)
    badge_plus(cv, 17.5, 17.5, 5.5)


def tb_del_user(cv):
    person(cv, 10, 1.5, 20.5, 4.2)
    badge_cross(cv, 17.5, 17.5, 5.5)


def tb_add_folder(cv):
    folder_closed(cv, 1.5, 3.5, 20.5, 18.5)
    badge_plus(cv, 17.5, 17.5, 5.5)


def tb_del_folder(cv):
    folder_closed(cv, 1.5, 3.5, 20.5, 18.5)
    badge_cross(cv, 17.5, 17.5, 5.5)


def tb_add_rec(cv):
    record_card(cv, 1.5, 3.5, 20.5, 17.5, 1.5)
    badge_plus(cv, 17.5, 17.5, 5.5)


def tb_del_rec(cv):
    record_card(cv, 1.5, 3.5, 20.5, 17.5, 1.5)
    badge_cross(cv, 17.5, 17.5, 5.5)


def tb_rename(cv):
    # Pencil lying flat, point on the left, then turned so it writes down-left.
    cy, h = 12.0, 5.0
    top, bot = cy - h / 2, cy + h / 2
    tip_x, wood_x, ferrule_x, eraser_x, end_x = 1.8, 6.5, 17.5, 19.0, 22.6
    rot = lambda s: Rotate(s, -45, 12, 12)
    outline = rot(Union(Poly([(tip_x, cy), (wood_x, top), (wood_x, bot)]),
                        Box(wood_x - 0.1, top, end_x, bot, 1.0)))
    cv.fill(Grow(outline, 0.9), "#5a4a2a")
    cv.fill(rot(Poly([(tip_x, cy), (wood_x, top), (wood_x, bot)])), "#f6d9a6")
    cv.fill(rot(Poly([(tip_x, cy), (tip_x + 1.9, cy - 1.0), (tip_x + 1.9, cy + 1.0)])), DARK)
    cv.fill(rot(Box(wood_x, top, ferrule_x, bot)), GOLD)
    cv.fill(rot(Box(wood_x, top, ferrule_x, cy - 0.8)), GOLD_L)
    cv.fill(rot(Box(wood_x, cy + 0.8, ferrule_x, bot)), "#d99a1e")
    cv.fill(rot(Box(ferrule_x, top, eraser_x, bot)), GREY)
    cv.fill(rot(Inter(Box(eraser_x, top, end_x, bot), Box(wood_x, top, end_x, bot, 1.0))), "#f28c8c")


def tb_find(cv):
    cv.fill(Line([(14.6, 14.6), (20.6, 20.6)], 3.6), DARK)
    cv.fill(Line([(15.4, 15.4), (20.4, 20.4)], 1.6), GREY_D)
    cv.fill(Circle(10, 10, 6.2), "#cfe6fbcc")
    cv.fill(Arc(10, 10, 4.3, 190, 260, 1.3), "#ffffffdd")
    cv.fill(Stroke(Circle(10, 10, 6.8), 2.4), Linear(4, 4, GREY, 16, 16, DARK))


# ---------------------------------------------------------------- catalogue

TREE = [
    ("db", t_db, "database drum: the user's database (tree root)"),
    ("1", t_record, "record card with password dots: default record"),
    ("2", t_folder, "closed folder: default folder"),
    ("3", t_key, "key"),
    ("4", t_globe, "globe: web site"),
    ("5", t_mail, "envelope: e-mail"),
    ("6", t_card, "bank card"),
    ("7", t_cart, "shopping cart"),
    ("8", t_computer, "computer monitor"),
    ("9", t_phone, "mobile phone"),
    ("10", t_chat, "chat bubble: messenger, forum"),
    ("11", t_lock, "padlock"),
    ("12", t_idcard, "identity card"),
    ("13", t_wifi, "wireless network"),
    ("14", t_gear, "gear: settings, software"),
    ("15", t_star, "star: favourite"),
    ("16", t_document, "document: note"),
    ("17", t_folder_open, "open folder"),
    ("18", t_house, "house: home"),
    ("19", t_cloud, "cloud: online service"),
    ("20", t_shield, "shield with tick: security"),
]

TOOLBAR = [
    ("tb_select_user", tb_select_user, "select user"),
    ("tb_add_user", tb_add_user, "add user"),
    ("tb_del_user", tb_del_user, "delete user"),
    ("tb_add_folder", tb_add_folder, "add folder"),
    ("tb_del_folder", tb_del_folder, "delete folder"),
    ("tb_add_rec", tb_add_rec, "add record"),
    ("tb_del_rec", tb_del_rec, "delete record"),
    ("tb_rename", tb_rename, "rename"),
    ("tb_find", tb_find, "find"),
]


def render(fn, size, grid):
    cv = Canvas(size, grid)
    fn(cv)
    return cv


def main(argv):
    out = argv[1] if len(argv) > 1 else HERE
    only = set(argv[2:])
    for table, base, grid in ((TREE, 16, 16), (TOOLBAR, 24, 24)):
        for name, fn, _ in table:
            if only and name not in only:
                continue
            render(fn, base, grid).png(os.path.join(out, name + ".png"))
            render(fn, base * 2, grid).png(os.path.join(out, name + "@2x.png"))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
