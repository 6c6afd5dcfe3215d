// The picture --plot draws: the input and output waveforms one above the
// other on a shared time axis with the beat grid, and a spectrogram of the
// output, so that a user sees where the echoes fall. Samples are folded into
// one min/max pair per pixel column as they stream past, so long files cost
// no more memory than short ones.
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

namespace render {

class WaveformPlot {
public:
    static constexpr int kWidth = 1200;
    static constexpr int kSpectrumSize = 1024;   // FFT length
    static constexpr int kSpectrumRows = 160;    // pixels of the spectrogram

    WaveformPlot(int inputChannels, int outputChannels, int64_t totalFrames, double sampleRate,
                 double tempo, bool spectrogram);

    // Interleaved blocks in render order.
    void add(const float* input, const float* output, int frames);
    // Draws and writes a PNG (temporary file, then rename). False with error
    // set when the file cannot be written.
    bool write(const std::string& path, const std::string& title, std::string& error);

    int height() const;
    // Peak of a channel in a pixel column (tests and drawing).
    float inputPeak(int channel, int column) const;
    float outputPeak(int channel, int column) const;

private:
    struct Envelope {
        std::vector<float> low, high;
    };
    void finishColumn(int column);
    void drawWaveform(void* cairo, const Envelope& envelope, double top, double height,
                      const char* label, double red, double green, double blue) const;
    void drawGrid(void* cairo, double top, double height) const;

    int inputChannels_, outputChannels_;
    int64_t totalFrames_;
    double sampleRate_, tempo_;
    bool spectrogram_;
    int64_t frame_ = 0;
    int column_ = 0;
    std::vector<Envelope> inputs_, outputs_;
    std::vector<float> ring_;  // the last kSpectrumSize output samples (channel mean)
    int ringPosition_ = 0;
    std::vector<float> spectrum_;  // kWidth columns of kSpectrumRows levels in dB
};

// In-place radix-2 FFT; size must be a power of two.
void fft(std::vector<std::complex<double>>& data);

}  // namespace render
