#include "persistence/NumberFormat.h"

#include <cmath>
#include <cstring>

namespace varitap {

// None of these texts goes through printf or any other locale-aware routine:
// hosts call setlocale(LC_ALL, "") and a German locale would write a comma.

void formatLong(long n, char* text) {
    if (!text) return;
    if (n >= 100000000) {
        std::strcpy(text, "Huge!");
        return;
    }
    // "%7d": the digits right-aligned in seven places, then cut to eight
    // characters (only large negative numbers reach nine or more).
    char digits[24];
    int length = 0;
    unsigned long magnitude = n < 0 ? 0ul - static_cast<unsigned long>(n) : static_cast<unsigned long>(n);
    do {
        digits[length++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (n < 0) digits[length++] = '-';
    char full[32];
    int out = 0;
    for (int pad = length; pad < 7; ++pad) full[out++] = ' ';
    while (length > 0) full[out++] = digits[--length];
    if (out > 8) out = 8;
    std::memcpy(text, full, static_cast<size_t>(out));
    text[out] = '\0';
}

void formatFloat(float value, char* text) {
    if (!text) return;
    // c counts the characters used so far out of eight: sign, point, digits.
    int c = 0;
    double v = value;
    const bool negative = value < 0;
    if (negative) {
        c = 1;
        v = -v;
        if (v > 9999999.0) return;  // "Huge!", which never reaches text
    } else if (!(v <= 99999999.0)) {
        return;  // "Huge!" as above; NaN lands here too
    }

    // Integer part, built from the right: the units digit always, then more
    // while the rest is non-zero and there is room. The room check can drop
    // leading digits (12345678 -> "2345678."); that is how it is meant.
    char integer[16];
    int end = sizeof(integer);
    integer[--end] = '\0';
    integer[--end] = '.';
    c += 2;
    unsigned long whole = static_cast<unsigned long>(std::floor(v));
    integer[--end] = static_cast<char>('0' + whole % 10);
    whole /= 10;
    while (whole >= 1 && c < 8) {
        integer[--end] = static_cast<char>('0' + whole % 10);
        whole /= 10;
        ++c;
    }
    if (negative) integer[--end] = '-';
    std::strcpy(text, integer + end);
    if (c >= 8) return;

    // Fraction: scaled to the places left and written from the right, its
    // lowest 8 - c digits. Digits are truncated, never rounded, and the
    // arithmetic runs on the float's exact value (0.7f is 0.69999998...).
    const int places = 8 - c;
    double scaled = std::fmod(v, 1.0) * std::pow(10.0, places);
    unsigned long fraction = static_cast<unsigned long>(scaled);
    char decimals[8];
    for (int i = places - 1; i >= 0; --i) {
        decimals[i] = static_cast<char>('0' + fraction % 10);
        fraction /= 10;
    }
    const size_t length = std::strlen(text);
    std::memcpy(text + length, decimals, static_cast<size_t>(places));
    text[length + static_cast<size_t>(places)] = '\0';
}

namespace {

// Formats through formatFloat and keeps at most maxDecimals digits after
// the point. When formatFloat writes nothing (a value out of range), the
// caller's text is left as it was, uncut: it may be a buffer the host never
// initialised.
void formatCut(float value, char* text, int maxDecimals) {
    if (!text) return;
    char formatted[16] = {};
    formatFloat(value, formatted);
    if (!formatted[0]) return;
    if (maxDecimals >= 1) {
        if (char* point = std::strchr(formatted, '.')) {
            if (std::strlen(point + 1) > static_cast<size_t>(maxDecimals)) point[1 + maxDecimals] = '\0';
        }
    }
    std::strcpy(text, formatted);
}

}  // namespace

void formatFloatDecimals(float value, char* text, int maxDecimals) { formatCut(value, text, maxDecimals); }

void formatMilliseconds(float samples, char* text, int maxDecimals, float sampleRate) {
    const float milliseconds = 1000.0f * samples / sampleRate;
    formatCut(milliseconds, text, maxDecimals);
}

void formatDecibels(float gain, char* text, int maxDecimals) {
    if (!text) return;
    if (gain > 0) {
        formatCut(static_cast<float>(20.0 * std::log10(gain)), text, maxDecimals);
    } else {
        std::strcpy(text, "-oo");
    }
}

}  // namespace varitap
