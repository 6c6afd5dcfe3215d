// One circular delay line with a tap's four parameters "Delay", "Volume",
// "Feedback" and "Sync". Delays are whole samples; one position is both read
// (the delayed sample) and written (input plus feedback).
#pragma once

#include <cstdint>

#include "engine/BlockResampler.h"
#include "engine/Relaxed.h"
#include "persistence/RefObject.h"

namespace varitap {

class DelayTap;

// What one block of a tap's line needs, as beginBlock leaves it: the line
// (null when there is none for this length; the tap then passes its input
// through), the head, the length and the gains.
struct TapBlock {
    float* line;
    uint32_t position;
    uint32_t length;
    float feedback;
    float appliedVolume;
    float volume;
    // The block runs DelayTap::runSmooth instead of the plain loop: a fade
    // is under way, or the block holds or starts one.
    bool smooth;
    // Holds and new fades ("Smooth Delay Time Changes" on, resampling off).
    bool detect;
};

// One row of a tap's parameter table. A null label or display writes nothing
// (the caller's text is left as it was).
struct DelayTapParameter {
    const char* name;
    void (*set)(DelayTap& tap, float value);
    float (*get)(const DelayTap& tap);
    void (*label)(const DelayTap& tap, char* text);
    void (*display)(const DelayTap& tap, char* text);
};

class DelayTap : public RefObject {
public:
    // The four parameters of a plain tap (local indices 0..3).
    static constexpr int kParameterCount = 4;
    // Extra samples past the capacity: the head may sit at position == length
    // (song alignment), and the 4-wide routine reads whole groups of four.
    static constexpr uint32_t kGuardSamples = 4;
    // Lines are never sized above this (64 MB): a longer request (an absurd
    // tempo) is refused and the tap passes its input through for that block.
    static constexpr uint32_t kMaxBufferSamples = 1u << 24;
    // "Smooth Delay Time Changes": how long the fade from the old read
    // position to the new one lasts. 10 ms turns a jump between two
    // full-scale samples (a difference of 2) into steps of about 0.0045 at
    // 44.1 kHz, a third of the steepest step of a full-scale 100 Hz sine,
    // while the two positions are heard together only briefly.
    static constexpr double kFadeSeconds = 0.010;
    // The fade's memory per tap: 10 ms up to 409.6 kHz (allocated once, at
    // construction, so that switching the option on costs the audio thread
    // nothing).
    static constexpr uint32_t kMaxFadeSamples = 4096;

    // construction thread. Sizes the line with setBufferSize(capacity).
    explicit DelayTap(uint32_t capacity);
    ~DelayTap() override;

    // Virtual in this order so that subclasses extend the tap; the threads are noted per call.
    // audio thread (the engine's suspend request), or while no block runs:
    // zeroes the whole line.
    virtual void clearBuffer();
    // audio thread (the engine's resume request), or while no block runs:
    // position = 0.
    virtual void resetPosition();
    // ui thread: the millisecond display and the fade's length in samples.
    virtual void setSampleRate(float rate);
    // any thread; takes no lock. index 0..3 (see the table in the .cpp);
    // other indices are ignored. Values are clamped to 0..1, NaN counts as 0.
    virtual void setParameter(int index, float value);
    // any thread. 0.0 for an unknown index.
    virtual float getParameter(int index) const;
    virtual void setPosition(uint32_t position);
    // Sets the length; grows the line when it is longer than the capacity.
    virtual void setDelaySamples(uint32_t samples);
    // Resizes the line to n samples, keeping its content (grown samples are
    // silence, so old memory is never heard). Does nothing unless
    // delaySamples <= n and n != capacity. May allocate: called from process
    // only to grow the line for a long synchronised length.
    virtual void setBufferSize(uint32_t n);
    virtual void setSpare(uint32_t spare);
    virtual void setVolume(float volume);
    virtual void setFeedback(float feedback);
    virtual void setSync(bool sync);
    virtual uint32_t getDelaySamples() const;
    virtual uint32_t getBufferSize() const;
    virtual bool isSynced() const;
    // audio thread. Adds the delayed signal into output and feeds input plus
    // feedback into the line, for count samples. samplesPerBeat sets the
    // length of a synchronised tap; with alignToSong the head is placed at the
    // song position modulo the length. Takes only the ScratchPool's lock
    // (resample mode). Without a line, output += input * volume.
    virtual void process(float* input, float* output, uint32_t count, float samplesPerBeat,
                         bool alignToSong, double songPositionSamples);
    // ui thread. Texts of the table: labels and displays at most 8
    // characters, names at most 31 (ParameterLayout.h).
    virtual void getParameterLabel(int index, char* text) const;
    virtual void getParameterDisplay(int index, char* text) const;
    virtual void getParameterName(int index, char* text) const;

    // audio thread. process in three steps, for an engine that runs the
    // loops of several taps itself: beginBlock places the head (song
    // alignment), sets the length (growing the line for a synchronised one)
    // and runs the resample step; then either the line's loop over count
    // samples from block.position, or, without a line, addUndelayed; then
    // endBlock with the head the loop left (not called without a line).
    // inputSilent says that every input sample was an exact zero, which lets
    // the tap learn when its line is all zero again.
    TapBlock beginBlock(uint32_t count, float samplesPerBeat, bool alignToSong,
                        double songPositionSamples);
    void endBlock(const TapBlock& block, uint32_t count, uint32_t position, bool inputSilent);
    // In place of the loop and endBlock for a silent line fed silence (with
    // finite gains): the line stays all zero, only the head moves.
    void skipBlock(const TapBlock& block, uint32_t count);
    // output += input * volume (the vector form scales input in place first).
    static void addUndelayed(float* input, float* output, uint32_t count, float volume);
    // audio thread. True when every sample the line can be read at is an
    // exact zero (after clearBuffer, or once silence has filled the line).
    bool isLineSilent() const { return dirtyEnd_ == 0; }

    // any thread. Resample mode ("Delay Time Resample").
    void setResample(bool on) { resample_ = on; }
    bool isResampling() const { return resample_; }
    // any thread. "Smooth Delay Time Changes". A tap's head writes its line
    // in passes from 0, and each pass reads what the pass before wrote, so
    // the delay heard is the length of the pass before. It changes when a
    // pass ends at another length (a new length, or one shorter than the
    // head's place, which ends the pass there): then, for fadeSamples(),
    // what is heard fades from the old delay (the line read on one old pass
    // back) to the new one. A pass longer than the one before reads, past
    // that one's end, the signal one old pass back in this pass instead of
    // older signal, so a longer delay holds the old one until the line has
    // been written at the new length. Feedback takes what is heard. A change
    // during a fade starts a new fade from what would have been heard, so
    // nothing ever jumps; a fade lasts at most one old pass (a short old
    // delay has no more of its signal to give). Song alignment does not
    // move the head (its place in a line written at its length changes
    // nothing heard). While resampling, the stretch governs length changes:
    // no hold, no new fade (one under way ends normally). Off, the tap
    // sounds exactly as without the option.
    void setSmoothDelayChanges(bool on) { smooth_ = on; }
    bool smoothsDelayChanges() const { return smooth_; }
    uint32_t fadeSamples() const { return fadeSamples_; }
    // The samples from sampleRate * kFadeSeconds, 1..kMaxFadeSamples.
    static uint32_t fadeSamplesFor(float sampleRate);
    // audio thread. The line's loop for a block with block.smooth (both
    // tap schedules run it): like tapLoopScalar (adds into output), with the
    // fade, from position over count samples. gain (the next sample's, in
    // and out) moves by step until it equals block.volume, so a block can be
    // run in pieces. Returns the head.
    uint32_t runSmooth(const TapBlock& block, uint32_t position, const float* input, float* output,
                       uint32_t count, float& gain, float step);

    // Read-outs for the plug-in, the editor and tests.
    uint32_t position() const { return position_; }
    float volume() const { return volume_; }
    float feedback() const { return feedback_; }
    float appliedVolume() const { return appliedVolume_; }
    float sampleRate() const { return sampleRate_; }
    uint32_t spare() const { return spare_; }
    uint32_t previousLength() const { return previousLength_; }
    bool isResamplePending() const { return resamplePending_; }
    // The line itself (capacity + kGuardSamples samples), or null.
    const float* line() const { return buffer_; }
    // The "Delay" parameter value delaySamples / capacity (0 without capacity).
    float delayValue() const;
    // The length process would use for a synchronised tap.
    uint32_t syncedLength(float samplesPerBeat) const;

    static const DelayTapParameter* parameterTable();

private:
    void stretch(uint32_t length, uint32_t count);
    void moveSamples(uint32_t from, uint32_t to, uint32_t n);
    void finishBlock(const TapBlock& block, uint32_t count, uint32_t position);
    // Whether a block of count samples from position_ on a line of length
    // holds or fades (see setSmoothDelayChanges).
    bool headBreaks(uint32_t length, uint32_t count) const;
    // passEnd_ after a block that ran the plain loop (what runSmooth follows
    // sample by sample).
    void followHead(uint32_t position, uint32_t length, uint32_t count);
    // The head's pass ends after end samples (it wraps or goes back to 0);
    // with fade, a fade starts where the new pass is heard at another delay.
    void endPass(uint32_t end, bool fade);
    // A fade from what is heard now (the fade under way, if any, and the
    // line one pass of `last` samples back) to the line one pass of `end`
    // samples back, as the next pass is heard.
    void startFade(uint32_t end, uint32_t last);
    // The head after count samples of the loop from position (what the loop
    // returns, without running it).
    static uint32_t advance(uint32_t position, uint32_t length, uint32_t count);

    float* buffer_ = nullptr;             // the line, 16-byte aligned, with guard samples
    uint32_t position_ = 0;               // read and write index
    Relaxed<uint32_t> delaySamples_{0};   // length set by "Delay"
    Relaxed<uint32_t> capacity_{0};       // samples in the line
    Relaxed<uint32_t> spare_{0};          // set by its setter; unused by processing
    Relaxed<float> feedback_{0.2f};       // gain of the delayed sample written back
    Relaxed<float> volume_{0.5f};         // target output gain
    float appliedVolume_ = 0.5f;          // gain at the end of the previous block
    Relaxed<bool> sync_{false};           // length follows the tempo
    Relaxed<bool> resample_{false};       // stretch the line when the length changes
    uint32_t previousLength_ = 0;         // length the stored signal was written with
    bool resamplePending_ = false;        // a stretch is in progress
    RefPtr<BlockResampler> resampler_;    // does the stretching
    Relaxed<float> sampleRate_{44100.0f};  // for the millisecond display only
    // What the line may hold (audio thread; clearBuffer marks it silent):
    Relaxed<uint32_t> dirtyEnd_{0};       // samples past this index are zero; 0: all zero
    uint32_t zeroRun_ = 0;                // zeros written last, at consecutive positions
    uint32_t lastEnd_ = 0;                // head and length when the last block ended,
    uint32_t lastLength_ = 0;             //   so a jump can end the zero run
    // "Smooth Delay Time Changes" (audio thread, but for the two settings):
    Relaxed<bool> smooth_{false};         // hold and fade where the delay heard would jump
    Relaxed<uint32_t> fadeSamples_{441};  // the fade's length at the sample rate
    float* fade_ = nullptr;               // kMaxFadeSamples: what is faded out, sample by sample
    uint32_t fadeStep_ = 0;               // samples of the fade done
    uint32_t fadeLength_ = 0;             // samples of the fade under way (done when equal)
    // Each pass of the head writes the line from 0 on, so a pass reads the
    // one before, one pass back, where that reached.
    uint32_t passEnd_ = 0;                // samples the last pass wrote; 0: not known
    bool passFromZero_ = true;            // the pass under way started at 0
};

}  // namespace varitap
