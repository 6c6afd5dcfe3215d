// The fixed-width number texts shown to hosts and in the editor. Independent
// of the host's locale: the decimal separator is always a point.
#pragma once

namespace varitap {

// Text buffers are the host's: at least 9 bytes (eight characters and the
// terminator) are always enough.

// "%7d", cut to eight characters; "Huge!" from 100000000 up.
void formatLong(long n, char* text);
// Eight characters of digits, point and sign (0.5 -> "0.500000",
// 1234567.0 -> "1234567.", 12345678.0 -> "2345678."). Values above 99999999
// (below -9999999) leave text untouched.
void formatFloat(float value, char* text);
// formatFloat, then at most maxDecimals digits after the point when
// maxDecimals >= 1.
void formatFloatDecimals(float value, char* text, int maxDecimals);
// 1000 * samples / sampleRate in single precision, as formatFloatDecimals.
void formatMilliseconds(float samples, char* text, int maxDecimals, float sampleRate);
// 20 * log10(gain) as formatFloatDecimals; "-oo" for a gain of 0 or less.
void formatDecibels(float gain, char* text, int maxDecimals);

}  // namespace varitap
