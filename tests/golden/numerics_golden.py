#!/usr/bin/env python3
"""Writes perlin.inc, sincos.inc and adsr.inc beside itself.

A second computation of the noise, the sine table and the envelopes, independent of the library. Single precision is
emulated: each operation is done in double precision, which has more than twice the bits, and rounded once to a float.
Sines come from a Taylor series in integers of 200 bits.
"""
import itertools
import math
import pathlib
import struct
import zlib


def f32(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


def bits(value):
    return struct.unpack("<I", struct.pack("<f", value))[0]


def from_bits(word):
    return struct.unpack("<f", struct.pack("<I", word))[0]


def add(a, b):
    return f32(a + b)


def sub(a, b):
    return f32(a - b)


def mul(a, b):
    return f32(a * b)


def div(a, b):
    return f32(a / b)


class Noise:
    def __init__(self, seed):
        self.state = seed
        self.p, self.g = list(range(256)), {1: [], 2: [], 3: []}
        for _ in range(256):
            for count in (1, 2, 3):
                vector = [div(f32(self.draw() % 512 - 256), 256.0) for _ in range(count)]
                self.g[count].append(vector if count == 1 else self.normalized(vector))
        for i in range(255, 0, -1):
            j = self.draw() % 256
            self.p[i], self.p[j] = self.p[j], self.p[i]

    def draw(self):
        self.state = (self.state * 214013 + 2531011) % 2**32
        return self.state // 65536 % 32768

    @staticmethod
    def normalized(vector):
        square = mul(vector[0], vector[0])
        for component in vector[1:]:
            square = add(square, mul(component, component))
        length = f32(math.sqrt(square)) or 1.1754943508222875e-38
        return [div(component, length) for component in vector]

    def corner(self, gradient, way):
        value = mul(gradient[0], way[0])
        for g, r in zip(gradient[1:], way[1:]):
            value = add(value, mul(g, r))
        return value

    def at(self, point):
        axes = []
        for coordinate in point:
            t = add(coordinate, 4096.0)
            n = int(t)
            r0 = sub(t, float(n))
            s = mul(mul(r0, r0), sub(3.0, mul(2.0, r0)))
            axes.append(((n % 256, r0), ((n + 1) % 256, sub(r0, 1.0)), s))

        def value(chosen):
            index = self.p[chosen[0][0]]
            if len(chosen) > 1:
                index = self.p[(index + chosen[1][0]) % 256]
            if len(chosen) > 2:
                index = (index + chosen[2][0]) % 256
            return self.corner(self.g[len(chosen)][index], [way for _, way in chosen])

        def blend(remaining):
            if len(remaining) == len(point):
                return value(remaining)
            low, high, s = axes[len(point) - len(remaining) - 1]
            a, b = blend([low] + remaining), blend([high] + remaining)
            return add(mul(sub(b, a), s), a)

        return min(max(blend([]), -0.5), 0.5)


def sine(angle):
    """Returns the sine of a float, rounded to a float."""
    one = 1 << 200
    numerator, denominator = angle.as_integer_ratio()
    x = numerator * one // denominator
    term, total, k = x, 0, 1
    while term:
        total += term
        term = -term * x // one * x // one // ((k + 1) * (k + 2))
        k += 2
    # The top 53 bits with a last bit that says whether more follow: rounding to a float is then exact.
    shift = max(abs(total).bit_length() - 53, 0)
    head = abs(total) >> shift
    sticky = head | (1 if head << shift != abs(total) else 0)
    return f32(math.copysign(math.ldexp(sticky, shift - 200), total))


def ramp(a, b, s, e, t):
    d = sub(e, s)
    if d == 0:
        return a if t < s else b
    level = add(a, div(mul(sub(b, a), sub(t, s)), d))
    return min(max(level, min(a, b)), max(a, b))


def envelope(levels, durations, time):
    attack, sustain = (f32(level) for level in levels)
    ends = list(itertools.accumulate(float(duration) for duration in durations))
    if time < 0 or time >= ends[3]:
        return 0.0
    rows = [(0.0, attack, 0.0, ends[0]), (attack, sustain, ends[0], ends[1]), None, (sustain, 0.0, ends[2], ends[3])]
    row = rows[next(i for i in range(4) if time < ends[i])]
    return ramp(row[0], row[1], f32(row[2]), f32(row[3]), f32(time)) if row else sustain


def coordinates():
    """Returns floats from -300 to 300, the same as the test draws."""
    state = 12345
    while True:
        state = (state * 1664525 + 1013904223) % 2**32
        yield sub(mul(f32(state >> 8), f32(600 / 2**24)), 300.0)


def perlin_lines():
    yield "constexpr NoiseRow_s NOISE_ROWS[] = {"
    for seed in (1, 2026, 0xFFFFFFFF):
        noise, source = Noise(seed), coordinates()
        for dimensions in (1, 2, 3) * 5:
            point = [next(source) for _ in range(dimensions)]
            words = ", ".join(f"0x{word:08X}" for word in [bits(c) for c in point] + [0] * (3 - dimensions))
            yield f"    {{ {seed}u, {dimensions}, {{ {words} }}, 0x{bits(noise.at(point)):08X} }},"
    yield "};"


def sincos_lines():
    table = [sine(f32(i * 16 * 3.1415927410125732 / 32768)) for i in range(4096)]
    crc = zlib.crc32(b"".join(struct.pack("<f", value) for value in table))
    yield f"constexpr std::uint32_t SINE_CRC = 0x{crc:08X}; // of all words of the table"


def adsr_lines():
    yield "constexpr EnvelopeRow_s ENVELOPE_ROWS[] = {"
    for levels, durations in (((1.0, 0.5), (1, 0, 0, 0)), ((0.9, 0.3), (0.1, 0.2, 0.3, 0.4)),
                              ((0.2, 0.7), (0, 0, 1.5, 0.7)), ((-1.0, 3.0), (1e-3, 1e6, 0, 1 / 3))):
        ends = [0.0] + list(itertools.accumulate(float(duration) for duration in durations))
        near = {end + d for end in ends for d in (-1e-9, 0.0, 1e-9)}
        for time in sorted(near | {ends[4] * i / 7 for i in range(7)}):
            row = f"{{ {levels[0]}f, {levels[1]}f }}, {{ {', '.join(repr(float(d)) for d in durations)} }}, {time!r}"
            yield f"    {{ {row}, 0x{bits(envelope(levels, durations, time)):08X} }},"
    yield "};"


for name, lines in (("perlin", perlin_lines), ("sincos", sincos_lines), ("adsr", adsr_lines)):
    path = pathlib.Path(__file__).parent / f"{name}.inc"
    path.write_text("\n".join(["// Written by numerics_golden.py.", *lines(), ""]))
