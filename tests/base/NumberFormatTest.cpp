#include "persistence/NumberFormat.h"

#include <gtest/gtest.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "TestSupport.h"

namespace varitap {
namespace {

constexpr char kUntouched[] = "untouched";

// The text a formatter leaves in a buffer that held kUntouched.
template <typename Format>
std::string textOf(Format format) {
    char text[32];
    std::strcpy(text, kUntouched);
    format(text);
    return text;
}

std::string decimalsText(float v, int d) { return textOf([&](char* t) { formatFloatDecimals(v, t, d); }); }
std::string decibelsText(float v, int d) { return textOf([&](char* t) { formatDecibels(v, t, d); }); }
std::string millisecondsText(float samples, int d, float rate) {
    return textOf([&](char* t) { formatMilliseconds(samples, t, d, rate); });
}

// Every example text, checked under whatever locale the process runs in.
void expectEveryExample() {
    // Eight characters of digits, point and sign; digits are truncated (0.7f
    // is 0.69999998807...); the digit limit drops a leading digit; out of
    // range the text is left as it was.
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, const char*> floats[] = {
        {0.5f, "0.500000"},         {12.25f, "12.25000"},       {-3.0f, "-3.00000"},        {-0.5f, "-0.50000"},
        {0.0f, "0.000000"},         {-0.0f, "0.000000"},        {1e-9f, "0.000000"},        {100.125f, "100.1250"},
        {0.7f, "0.699999"},         {1234567.0f, "1234567."},   {12345678.0f, "2345678."},  {99999992.0f, "9999992."},
        {-9999999.0f, "-999999."},  {123456789.0f, kUntouched}, {100000000.0f, kUntouched}, {-10000000.0f, kUntouched},
        {inf, kUntouched},          {-inf, kUntouched},         {std::nanf(""), kUntouched},
    };
    for (const auto& row : floats) EXPECT_EQ(textOf([&](char* t) { formatFloat(row.first, t); }), row.second) << row.first;

    // "%7d" cut to eight characters, "Huge!" from 100000000 up.
    const std::pair<long, const char*> longs[] = {
        {0, "      0"},         {22, "     22"},         {-5, "     -5"},         {1234567, "1234567"},
        {99999999, "99999999"}, {-1234567, "-1234567"}, {-12345678, "-1234567"}, {LONG_MIN, "-9223372"},
        {100000000, "Huge!"},   {LONG_MAX, "Huge!"},
    };
    for (const auto& row : longs) EXPECT_EQ(textOf([&](char* t) { formatLong(row.first, t); }), row.second) << row.first;

    // The cut after maxDecimals digits (below 1 nothing is cut); milliseconds
    // in single precision (56000 samples at 44100 Hz; no text without a
    // sample rate); decibels.
    const std::pair<std::string, const char*> texts[] = {
        {decimalsText(0.25f, -1), "0.250000"},  {decimalsText(0.25f, 0), "0.250000"},
        {decimalsText(12.25f, 1), "12.2"},      {decimalsText(0.5f, 2), "0.50"},
        {decimalsText(12.25f, 5), "12.25000"},  {decimalsText(1234567.0f, 2), "1234567."},
        {decimalsText(1e9f, 2), kUntouched},    {millisecondsText(56000.0f, 1, 44100.0f), "1269.8"},
        {millisecondsText(56000.0f, -1, 44100.0f), "1269.841"}, {millisecondsText(44100.0f, 2, 44100.0f), "1000.00"},
        {millisecondsText(0.0f, 1, 48000.0f), "0.0"},           {millisecondsText(1.0f, 1, 0.0f), kUntouched},
        {decibelsText(0.0f, 2), "-oo"},         {decibelsText(-1.0f, 2), "-oo"},
        {decibelsText(std::nanf(""), 2), "-oo"}, {decibelsText(1.0f, -1), "0.000000"},
        {decibelsText(0.5f, 2), "-6.02"},       {decibelsText(2.0f, 2), "6.02"},
        {decibelsText(10.0f, 1), "20.0"},
    };
    for (size_t i = 0; i < std::size(texts); ++i) EXPECT_EQ(texts[i].first, texts[i].second) << "row " << i;
}

TEST(NumberFormatTest, TheExampleTexts) { expectEveryExample(); }

TEST(NumberFormatTest, TheSameTextsUnderALocaleWithADecimalComma) {
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    // The locale really writes a comma: printf-made digits would show it.
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    char probe[32];
    std::snprintf(probe, sizeof(probe), "%f", 0.5);
    ASSERT_STREQ(probe, "0,500000");
    expectEveryExample();
    std::setlocale(LC_ALL, "C");
}

TEST(NumberFormatTest, NeverWritesMoreThanEightCharactersAndTheTerminator) {
    std::mt19937 random(20261121);
    std::uniform_real_distribution<float> magnitude(-9.0f, 8.0f);
    std::uniform_int_distribution<int> sign(0, 1);
    for (int i = 0; i < 20000; ++i) {
        const float value = (sign(random) ? -1.0f : 1.0f) * std::pow(10.0f, magnitude(random));
        char text[32];
        std::memset(text, '#', sizeof(text));
        text[0] = '\0';
        formatFloat(value, text);
        const size_t length = std::strlen(text);
        ASSERT_LE(length, 8u) << value;
        for (size_t k = length + 1; k < sizeof(text); ++k) ASSERT_EQ(text[k], '#') << value;
        if (length == 0) continue;  // out of range, untouched
        ASSERT_EQ(length, 8u) << value << " -> " << text;
        ASSERT_NE(std::strchr(text, '.'), nullptr) << value;
        ASSERT_EQ(text[0] == '-', value < 0) << value;
        // Below a million every integer digit fits: the text read back is
        // the value truncated to the decimals shown.
        if (std::fabs(value) < 1e6f) {
            double shown = 0;
            std::from_chars(text, text + length, shown);
            const size_t decimals = length - 1 - static_cast<size_t>(std::strchr(text, '.') - text);
            const double magnitude = std::fabs(static_cast<double>(value));
            ASSERT_LE(std::fabs(shown), magnitude + 1e-12) << value << " " << text;
            ASSERT_GT(std::fabs(shown), magnitude - std::pow(10.0, -static_cast<double>(decimals)) - 1e-12)
                << value << " " << text;
        }
    }
}

}  // namespace
}  // namespace varitap
