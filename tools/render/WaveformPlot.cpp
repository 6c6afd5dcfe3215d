#include "tools/render/WaveformPlot.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace render {

namespace {

constexpr int kMaxShownChannels = 4;
constexpr int kStripHeight = 110;
constexpr int kTitleHeight = 30;
constexpr int kAxisHeight = 24;
constexpr int kLeft = 70;  // room for the strip labels
constexpr double kPi = 3.14159265358979323846;
constexpr double kFloorDb = -100.0;

}  // namespace

void fft(std::vector<std::complex<double>>& data) {
    const size_t n = data.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(data[i], data[j]);
    }
    for (size_t length = 2; length <= n; length <<= 1) {
        std::complex<double> step = std::polar(1.0, -2.0 * kPi / static_cast<double>(length));
        for (size_t i = 0; i < n; i += length) {
            std::complex<double> w(1.0, 0.0);
            for (size_t k = 0; k < length / 2; ++k) {
                std::complex<double> a = data[i + k], b = data[i + k + length / 2] * w;
                data[i + k] = a + b;
                data[i + k + length / 2] = a - b;
                w *= step;
            }
        }
    }
}

WaveformPlot::WaveformPlot(int inputChannels, int outputChannels, int64_t totalFrames,
                           double sampleRate, double tempo, bool spectrogram)
    : inputChannels_(std::clamp(inputChannels, 0, kMaxShownChannels)),
      outputChannels_(std::clamp(outputChannels, 0, kMaxShownChannels)),
      totalFrames_(std::max<int64_t>(1, totalFrames)),
      sampleRate_(sampleRate),
      tempo_(tempo),
      spectrogram_(spectrogram),
      ring_(kSpectrumSize, 0.0f),
      spectrum_(spectrogram ? static_cast<size_t>(kWidth) * kSpectrumRows : 0, static_cast<float>(kFloorDb)) {
    Envelope empty{std::vector<float>(kWidth, 0.0f), std::vector<float>(kWidth, 0.0f)};
    inputs_.assign(inputChannels_, empty);
    outputs_.assign(outputChannels_, empty);
}

void WaveformPlot::add(const float* input, const float* output, int frames) {
    // Channel counts of the interleaved blocks may exceed the shown ones.
    const int outStride = std::max(outputChannels_, 1);
    for (int i = 0; i < frames; ++i, ++frame_) {
        int column = static_cast<int>(std::min<int64_t>(frame_ * kWidth / totalFrames_, kWidth - 1));
        while (column_ < column) finishColumn(column_++);
        for (int c = 0; c < inputChannels_; ++c) {
            float s = input[static_cast<size_t>(i) * inputChannels_ + c];
            inputs_[c].low[column] = std::min(inputs_[c].low[column], s);
            inputs_[c].high[column] = std::max(inputs_[c].high[column], s);
        }
        float sum = 0.0f;
        for (int c = 0; c < outputChannels_; ++c) {
            float s = output[static_cast<size_t>(i) * outputChannels_ + c];
            outputs_[c].low[column] = std::min(outputs_[c].low[column], s);
            outputs_[c].high[column] = std::max(outputs_[c].high[column], s);
            sum += s;
        }
        ring_[ringPosition_] = sum / static_cast<float>(outStride);
        ringPosition_ = (ringPosition_ + 1) % kSpectrumSize;
    }
}

void WaveformPlot::finishColumn(int column) {
    if (!spectrogram_ || column < 0 || column >= kWidth) return;
    std::vector<std::complex<double>> data(kSpectrumSize);
    for (int i = 0; i < kSpectrumSize; ++i) {
        double window = 0.5 - 0.5 * std::cos(2.0 * kPi * i / (kSpectrumSize - 1));
        data[i] = ring_[(ringPosition_ + i) % kSpectrumSize] * window;
    }
    fft(data);
    // Rows on a logarithmic frequency axis from 30 Hz to the Nyquist frequency.
    const double nyquist = sampleRate_ / 2.0, lowest = std::min(30.0, nyquist / 2.0);
    for (int row = 0; row < kSpectrumRows; ++row) {
        double f0 = lowest * std::pow(nyquist / lowest, static_cast<double>(row) / kSpectrumRows);
        double f1 = lowest * std::pow(nyquist / lowest, static_cast<double>(row + 1) / kSpectrumRows);
        int b0 = std::clamp(static_cast<int>(f0 / nyquist * (kSpectrumSize / 2)), 1, kSpectrumSize / 2 - 1);
        int b1 = std::clamp(static_cast<int>(f1 / nyquist * (kSpectrumSize / 2)), b0, kSpectrumSize / 2 - 1);
        double power = 0.0;
        for (int b = b0; b <= b1; ++b) power = std::max(power, std::norm(data[b]));
        double magnitude = std::sqrt(power) / (kSpectrumSize / 4.0);  // sine of amplitude 1 -> about 1
        spectrum_[static_cast<size_t>(column) * kSpectrumRows + row] =
            static_cast<float>(std::max(kFloorDb, 20.0 * std::log10(magnitude + 1e-12)));
    }
}

int WaveformPlot::height() const {
    return kTitleHeight + (inputChannels_ + outputChannels_) * kStripHeight +
           (spectrogram_ ? kSpectrumRows + 10 : 0) + kAxisHeight;
}

float WaveformPlot::inputPeak(int channel, int column) const {
    const Envelope& e = inputs_.at(channel);
    return std::max(std::fabs(e.low.at(column)), std::fabs(e.high.at(column)));
}

float WaveformPlot::outputPeak(int channel, int column) const {
    const Envelope& e = outputs_.at(channel);
    return std::max(std::fabs(e.low.at(column)), std::fabs(e.high.at(column)));
}

void WaveformPlot::drawGrid(void* context, double top, double height) const {
    cairo_t* cr = static_cast<cairo_t*>(context);
    const double pixelsPerSecond = (kWidth - kLeft) * sampleRate_ / static_cast<double>(totalFrames_);
    if (tempo_ > 0.0) {
        const double beat = 60.0 / tempo_;
        for (int b = 0; b * beat * pixelsPerSecond < kWidth - kLeft; ++b) {
            double x = kLeft + b * beat * pixelsPerSecond + 0.5;
            double shade = b % 4 == 0 ? 0.55 : 0.8;
            cairo_set_source_rgb(cr, shade, shade, shade);
            cairo_move_to(cr, x, top);
            cairo_line_to(cr, x, top + height);
            cairo_stroke(cr);
        }
    }
}

void WaveformPlot::drawWaveform(void* context, const Envelope& envelope, double top, double height,
                                const char* label, double red, double green, double blue) const {
    cairo_t* cr = static_cast<cairo_t*>(context);
    cairo_set_line_width(cr, 1.0);
    cairo_set_source_rgb(cr, 0.97, 0.97, 0.97);
    cairo_rectangle(cr, kLeft, top + 2, kWidth - kLeft, height - 4);
    cairo_fill(cr);
    drawGrid(cr, top + 2, height - 4);
    const double middle = top + height / 2.0, scale = (height - 8) / 2.0;
    cairo_set_source_rgb(cr, 0.7, 0.7, 0.7);
    cairo_move_to(cr, kLeft, middle + 0.5);
    cairo_line_to(cr, kWidth, middle + 0.5);
    cairo_stroke(cr);
    // Each plot column spans several envelope columns: the envelope has kWidth
    // columns for kWidth - kLeft pixels.
    cairo_set_source_rgb(cr, red, green, blue);
    const int pixels = kWidth - kLeft;
    for (int x = 0; x < pixels; ++x) {
        int c0 = x * kWidth / pixels, c1 = std::max(c0 + 1, (x + 1) * kWidth / pixels);
        float low = 0.0f, high = 0.0f;
        for (int c = c0; c < c1 && c < kWidth; ++c) {
            low = std::min(low, envelope.low[c]);
            high = std::max(high, envelope.high[c]);
        }
        low = std::max(low, -1.0f);
        high = std::min(high, 1.0f);
        cairo_move_to(cr, kLeft + x + 0.5, middle - high * scale - 0.5);
        cairo_line_to(cr, kLeft + x + 0.5, middle - low * scale + 0.5);
    }
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_set_font_size(cr, 12.0);
    cairo_move_to(cr, 6, middle + 4);
    cairo_show_text(cr, label);
}

bool WaveformPlot::write(const std::string& path, const std::string& title, std::string& error) {
    while (column_ < kWidth) finishColumn(column_++);

    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, height());
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_font_size(cr, 14.0);
    cairo_move_to(cr, 8, 20);
    cairo_show_text(cr, title.c_str());

    double top = kTitleHeight;
    char label[32];
    for (int c = 0; c < inputChannels_; ++c, top += kStripHeight) {
        std::snprintf(label, sizeof(label), "in %d", c + 1);
        drawWaveform(cr, inputs_[c], top, kStripHeight, label, 0.2, 0.35, 0.7);
    }
    for (int c = 0; c < outputChannels_; ++c, top += kStripHeight) {
        std::snprintf(label, sizeof(label), "out %d", c + 1);
        drawWaveform(cr, outputs_[c], top, kStripHeight, label, 0.75, 0.3, 0.15);
    }
    if (spectrogram_) {
        // Column by column, one pixel per row, dark blue (quiet) to yellow (loud).
        const int pixels = kWidth - kLeft;
        for (int x = 0; x < pixels; ++x) {
            int column = x * kWidth / pixels;
            for (int row = 0; row < kSpectrumRows; ++row) {
                double db = spectrum_[static_cast<size_t>(column) * kSpectrumRows + row];
                double level = std::clamp((db - kFloorDb) / -kFloorDb, 0.0, 1.0);
                cairo_set_source_rgb(cr, level, level * level * 0.9, 0.35 * (1.0 - level) + 0.1);
                cairo_rectangle(cr, kLeft + x, top + 5 + (kSpectrumRows - 1 - row), 1, 1);
                cairo_fill(cr);
            }
        }
        cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
        cairo_set_font_size(cr, 12.0);
        cairo_move_to(cr, 6, top + 5 + kSpectrumRows / 2.0);
        cairo_show_text(cr, "spectrum");
        top += kSpectrumRows + 10;
    }
    // Time axis: one mark per second.
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_set_font_size(cr, 11.0);
    const double seconds = static_cast<double>(totalFrames_) / sampleRate_;
    const double step = seconds > 40.0 ? std::ceil(seconds / 20.0) : 1.0;
    for (double s = 0.0; s <= seconds; s += step) {
        double x = kLeft + s / seconds * (kWidth - kLeft);
        cairo_move_to(cr, x + 2, top + 15);
        char text[32];
        std::snprintf(text, sizeof(text), "%gs", s);
        cairo_show_text(cr, text);
    }
    cairo_destroy(cr);

    std::string temporary = path + ".tmp" + std::to_string(::getpid());
    cairo_status_t status = cairo_surface_write_to_png(surface, temporary.c_str());
    cairo_surface_destroy(surface);
    // The program draws one picture: give back the font caches cairo's text
    // left in cairo and fontconfig (the next drawing builds them again).
    cairo_debug_reset_static_data();
    FcFini();
    if (status != CAIRO_STATUS_SUCCESS) {
        ::unlink(temporary.c_str());
        error = std::string("cannot be written (") + cairo_status_to_string(status) + ")";
        return false;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = std::string("cannot be written (") + std::strerror(errno) + ")";
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace render
