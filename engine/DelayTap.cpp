#include "engine/DelayTap.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "engine/NoteValueTable.h"
#include "engine/ParameterLayout.h"
#include "engine/ParameterText.h"
#include "engine/VectorOps.h"
#include "modulation/ScratchPool.h"
#include "persistence/NumberFormat.h"
#include "persistence/Preferences.h"
#include "persistence/SystemInfo.h"

namespace varitap {

namespace {

float* allocateLine(uint32_t samples) {
    void* memory = nullptr;
    if (posix_memalign(&memory, 16, (size_t(samples) + DelayTap::kGuardSamples) * sizeof(float)) != 0)
        return nullptr;
    return static_cast<float*>(memory);
}

// A float that may be anything (NaN, negative, huge) as a sample count:
// truncated toward zero, NaN and negatives as 0, saturated at the top.
uint32_t toSamples(double value) {
    if (!(value > 0.0)) return 0;
    if (value >= 4294967295.0) return 0xffffffffu;
    return static_cast<uint32_t>(value);
}

bool showSamples() {
    // The option is read where it is shown, so a change in the editor's
    // Options menu shows at once. Without a store it is off.
    Preferences* preferences = Preferences::current();
    long inSamples = 0;
    if (preferences) preferences->getNumber(kOptionDelayTimeInSamples, &inSamples, 0);
    return inSamples != 0;
}

void displayDelay(const DelayTap& tap, char* text) {
    if (tap.isSynced()) {
        const int row = static_cast<int>(tap.delayValue() * (noteValueCount() - 1));
        copyText(text, noteValueName(row), kDisplayTextMax);
    } else if (showSamples()) {
        formatLong(static_cast<long>(tap.getDelaySamples()), text);
    } else {
        formatMilliseconds(static_cast<float>(tap.getDelaySamples()), text, 1, tap.sampleRate());
        // Long times lose their decimal: "1269.8" is shown as "1269".
        if (std::strlen(text) > 5) {
            if (char* point = std::strchr(text, '.')) *point = '\0';
        }
    }
}

const DelayTapParameter kTapParameters[DelayTap::kParameterCount] = {
    {"Delay",
     [](DelayTap& t, float v) {
         t.setDelaySamples(toSamples(double(unitValue(v) * static_cast<float>(t.getBufferSize()))));
     },
     [](const DelayTap& t) { return t.delayValue(); },
     [](const DelayTap& t, char* text) {
         copyLocalized(text, t.isSynced() ? "Tempo" : "Samples", kDisplayTextMax);
     },
     displayDelay},
    {"Volume", [](DelayTap& t, float v) { t.setVolume(unitValue(v)); },
     [](const DelayTap& t) { return t.volume(); },
     [](const DelayTap&, char* text) { copyText(text, "", kDisplayTextMax); },
     [](const DelayTap& t, char* text) { formatDecibels(t.volume(), text, -1); }},
    {"Feedback", [](DelayTap& t, float v) { t.setFeedback(unitValue(v)); },
     [](const DelayTap& t) { return t.feedback(); },
     [](const DelayTap&, char* text) { copyText(text, "", kDisplayTextMax); },
     [](const DelayTap& t, char* text) { formatFloat(t.feedback(), text); }},
    {"Sync", [](DelayTap& t, float v) { t.setSync(v > 0.5f); },
     [](const DelayTap& t) { return t.isSynced() ? 1.0f : 0.0f; },
     [](const DelayTap&, char* text) { copyText(text, "", kDisplayTextMax); },
     [](const DelayTap& t, char* text) {
         copyLocalized(text, t.isSynced() ? "On" : "Off", kDisplayTextMax);
     }},
};

}  // namespace

const DelayTapParameter* DelayTap::parameterTable() { return kTapParameters; }

DelayTap::DelayTap(uint32_t capacity) : resampler_(RefPtr<BlockResampler>::adopt(new BlockResampler)) {
    setBufferSize(capacity);
    // Without this memory the tap never fades (it sounds as without the option).
    fade_ = static_cast<float*>(std::malloc(kMaxFadeSamples * sizeof(float)));
}

DelayTap::~DelayTap() {
    std::free(buffer_);
    std::free(fade_);
}

void DelayTap::clearBuffer() {
    if (buffer_) std::memset(buffer_, 0, (size_t(capacity_) + kGuardSamples) * sizeof(float));
    // The run of zeros may be stale now; it only ever counts zeros, which
    // a cleared line holds everywhere.
    dirtyEnd_ = 0;
    // Nothing of the past may sound again, faded or not; and a silent line
    // has no order to leave until it is written again.
    fadeStep_ = fadeLength_ = 0;
    passEnd_ = 0;
    passFromZero_ = true;
}

void DelayTap::resetPosition() { position_ = 0; }

void DelayTap::setSampleRate(float rate) {
    sampleRate_ = rate;
    fadeSamples_ = fadeSamplesFor(rate);
}

uint32_t DelayTap::fadeSamplesFor(float sampleRate) {
    const double samples = std::round(double(sampleRate) * kFadeSeconds);
    if (!(samples >= 1.0)) return 1;  // also NaN
    return samples < double(kMaxFadeSamples) ? uint32_t(samples) : kMaxFadeSamples;
}

void DelayTap::setParameter(int index, float value) {
    if (index >= 0 && index < kParameterCount) kTapParameters[index].set(*this, value);
}

float DelayTap::getParameter(int index) const {
    if (index >= 0 && index < kParameterCount) return kTapParameters[index].get(*this);
    return 0.0f;
}

void DelayTap::setPosition(uint32_t position) { position_ = position; }

void DelayTap::setDelaySamples(uint32_t samples) {
    delaySamples_ = samples;
    if (capacity_ < samples) setBufferSize(samples);
}

// May allocate: at construction, and on the audio thread when a synchronised
// length outgrows the line.
void DelayTap::setBufferSize(uint32_t n) {
    const uint32_t capacity = capacity_;
    if (delaySamples_ > n || n == capacity) return;
    // Our own limit: an absurd length is refused and changes nothing, so the
    // tap recovers once the length is sensible again.
    if (n > kMaxBufferSamples) return;
    float* grown = allocateLine(n);
    if (grown) {
        const uint32_t kept = buffer_ ? (capacity < n ? capacity : n) : 0;
        if (kept) std::memcpy(grown, buffer_, kept * sizeof(float));
        // The grown part (and the guard) is silence, never old memory.
        std::memset(grown + kept, 0, (size_t(n) - kept + kGuardSamples) * sizeof(float));
    }
    std::free(buffer_);
    buffer_ = grown;
    capacity_ = n;
}

void DelayTap::setSpare(uint32_t spare) { spare_ = spare; }
void DelayTap::setVolume(float volume) { volume_ = volume; }
void DelayTap::setFeedback(float feedback) { feedback_ = feedback; }
void DelayTap::setSync(bool sync) { sync_ = sync; }
uint32_t DelayTap::getDelaySamples() const { return delaySamples_; }
uint32_t DelayTap::getBufferSize() const { return capacity_; }
bool DelayTap::isSynced() const { return sync_; }

float DelayTap::delayValue() const {
    const uint32_t capacity = capacity_;
    if (capacity == 0) return 0.0f;
    return static_cast<float>(delaySamples_) / static_cast<float>(capacity);
}

uint32_t DelayTap::syncedLength(float samplesPerBeat) const {
    const int row = static_cast<int>(delayValue() * static_cast<float>(noteValueCount() - 1));
    return toSamples(double(samplesPerBeat * noteValueBeats(row)));
}

void DelayTap::process(float* input, float* output, uint32_t count, float samplesPerBeat,
                       bool alignToSong, double songPositionSamples) {
    const TapBlock block = beginBlock(count, samplesPerBeat, alignToSong, songPositionSamples);
    if (!block.line) {
        addUndelayed(input, output, count, block.volume);
        return;
    }
    if (block.smooth) {
        float gain = block.appliedVolume;
        const float step = (block.volume - block.appliedVolume) / static_cast<float>(count);
        endBlock(block, count, runSmooth(block, block.position, input, output, count, gain, step), false);
        return;
    }
    const TapLoop loop = block.length == 0 ? tapLoopScalar : kernels().tapLoop;
    const uint32_t position = loop(block.line, block.position, block.length, input, output, count,
                                   block.feedback, block.appliedVolume, block.volume);
    endBlock(block, count, position, false);
}

TapBlock DelayTap::beginBlock(uint32_t count, float samplesPerBeat, bool alignToSong,
                              double songPositionSamples) {
    const float fb = feedback_;
    const float vol = volume_;
    uint32_t len = delaySamples_;
    // Holding and fading where the delay heard would jump ("Smooth Delay
    // Time Changes"); the stretch governs instead while resampling.
    const bool detect = fade_ && smooth_ && !resample_;
    if (sync_) {
        len = syncedLength(samplesPerBeat);
        // Aligning to the song moves the head inside its pass, which is
        // heard as a jump. A head's place in a line written at its length
        // changes nothing heard, so a fading tap keeps its own.
        if (alignToSong && !detect) {
            // The head lands on the song position minus whole lengths, in
            // 1..len for a position past len (as repeated subtraction gives).
            // A length of 0 has one place to be: 0.
            const double song = std::isfinite(songPositionSamples) && songPositionSamples > 0.0
                                    ? std::trunc(songPositionSamples)
                                    : 0.0;
            if (len == 0) {
                position_ = 0;
            } else if (song > double(len)) {
                const uint64_t p = song >= 9.0e18 ? uint64_t(9.0e18) : uint64_t(song);
                position_ = uint32_t((p - 1) % len + 1);
            } else {
                position_ = uint32_t(song);
            }
        }
    }
    if (position_ > len) position_ = 0;
    if (capacity_ < len) setBufferSize(len);

    // No line for this length: the undelayed input, without a ramp.
    if (capacity_ < len || !buffer_)
        return TapBlock{nullptr, position_, len, fb, appliedVolume_, vol, false, false};

    // A jump of the head or a new length ends the run of zeros.
    if (position_ != lastEnd_ || len != lastLength_) zeroRun_ = 0;
    if (position_ != lastEnd_) {
        // Back to 0 (a length now shorter than the head's place, a reset):
        // the pass ends where the head stood. Anywhere else: a pass that does
        // not start at 0 follows no order until the next one.
        if (position_ == 0 && lastEnd_ != 0) {
            endPass(lastEnd_, detect);
        } else if (position_ != 0) {
            passEnd_ = 0;
            passFromZero_ = false;
        }
    }
    if (resample_) {
        if (previousLength_ != 0 && previousLength_ != len) resamplePending_ = true;
        // A line that was shrunk below the stored signal's length cannot be
        // stretched from it.
        if (previousLength_ > capacity_) resamplePending_ = false;
        if (resamplePending_) {
            stretch(len, count);
            // Moved signal may land anywhere in the line.
            if (dirtyEnd_ != 0) {
                dirtyEnd_ = capacity_ + kGuardSamples;
                zeroRun_ = 0;
            }
        }
        if (uint64_t(position_) + count > len) {
            previousLength_ = len;
            resamplePending_ = false;
        }
    }
    // The plain loop whenever nothing is faded or held: with the option off
    // a block sounds exactly as without it, and so does an unchanging tap
    // with it on.
    const bool smooth = fadeStep_ < fadeLength_ || (detect && headBreaks(len, count));
    return TapBlock{buffer_, position_, len, fb, appliedVolume_, vol, smooth, detect};
}

bool DelayTap::headBreaks(uint32_t len, uint32_t count) const {
    const uint32_t p = position_;
    if (count == 0) return false;
    // Reads p .. r1, then the head wraps to 0 (p is at most len).
    const uint32_t firstRun = p + 1 >= len ? 1 : len - p;
    const uint32_t r1 = p + firstRun - 1;
    const uint32_t end = passEnd_;
    // Reads at or past the end of the last pass are held.
    const uint32_t lastOfRun = count < firstRun ? p + count - 1 : r1;
    if (end != 0 && end <= lastOfRun) return true;
    if (count < firstRun) return false;
    // The pass ends at r1 + 1 in this block: a fade where its length differs.
    if (end != 0 && r1 + 1 != end) return true;
    // A second pass, from 0, ends in this block at the length.
    const uint32_t period = len ? len : 1;
    return passFromZero_ && r1 + 1 != period && count - firstRun >= period;
}

void DelayTap::followHead(uint32_t position, uint32_t length, uint32_t count) {
    // The pass ends runSmooth would have seen, without a fade among them.
    const uint32_t firstRun = position + 1 >= length ? 1 : length - position;
    if (count < firstRun) return;
    const uint32_t period = length ? length : 1;
    if (count - firstRun >= period) {
        passEnd_ = period;
    } else {
        passEnd_ = passFromZero_ ? position + firstRun : 0;
    }
    passFromZero_ = true;
}

void DelayTap::endPass(uint32_t end, bool fade) {
    if (fade && passEnd_ != 0 && end != passEnd_) startFade(end, passEnd_);
    passEnd_ = passFromZero_ ? end : 0;
    passFromZero_ = true;
}

namespace {

// Loops the compiler may run several samples at once, with a check at run
// time that the arrays do not overlap (GCC does neither at -O2; clang does).
#if defined(__GNUC__) && !defined(__clang__)
#define VARITAP_VECTORIZE __attribute__((optimize("tree-loop-vectorize", "vect-cost-model=dynamic")))
#else
#define VARITAP_VECTORIZE
#endif

// One stretch of DelayTap::runSmooth, sample by sample as tapLoopScalar:
// what is heard is the line at from (the head, or a pass back), faded in
// from faded[] with weights (base + k) * inv when fading. Without a ramp
// (and so without a test per sample) the loop runs several samples at once.
template <bool kFading, bool kRamp>
VARITAP_VECTORIZE void runStretch(float* at, const float* from, const float* faded, uint32_t base, float inv,
                const float* in, float* out, uint32_t run, float feedback, float& gain, float step,
                float volume) {
    float g = gain;
    for (uint32_t k = 0; k < run; ++k) {
        float heard = from[k];
        if constexpr (kFading) {
            const float w = static_cast<float>(int32_t(base + k)) * inv;
            heard = faded[k] * (1.0f - w) + heard * w;
        }
        at[k] = heard * feedback + in[k];
        out[k] += heard * g;
        if constexpr (kRamp) {
            if (g != volume) g += step;
        }
    }
    gain = g;
}

}  // namespace

uint32_t DelayTap::runSmooth(const TapBlock& block, uint32_t position, const float* input, float* output,
                             uint32_t count, float& gain, float step) {
    float* line = block.line;
    const uint32_t len = block.length;
    const float feedback = block.feedback;
    const float volume = block.volume;
    // Stretches that read one way: up to the head's wrap, the end of the
    // last pass (reads from there on are held: the line holds older signal
    // there, so what is heard is the signal one last pass back, in this
    // pass) and the end of the fade.
    for (uint32_t i = 0; i < count;) {
        uint32_t run = position < len ? len - position : 1;
        if (run > count - i) run = count - i;
        const uint32_t end = passEnd_;
        uint32_t back = 0;
        if (block.detect && end != 0) {
            if (position >= end)
                back = end;
            else if (end - position < run)
                run = end - position;
        }
        const bool fading = fadeStep_ < fadeLength_;
        if (fading && fadeLength_ - fadeStep_ < run) run = fadeLength_ - fadeStep_;
        float* at = line + position;
        const float* from = at - back;
        const float* in = input + i;
        float* out = output + i;
        const bool ramp = gain != volume;
        if (fading) {
            const float* faded = fade_ + fadeStep_;
            const float inv = 1.0f / static_cast<float>(fadeLength_);
            if (ramp)
                runStretch<true, true>(at, from, faded, fadeStep_ + 1, inv, in, out, run, feedback, gain, step, volume);
            else
                runStretch<true, false>(at, from, faded, fadeStep_ + 1, inv, in, out, run, feedback, gain, step, volume);
            fadeStep_ += run;
        } else if (ramp) {
            runStretch<false, true>(at, from, nullptr, 0, 0.0f, in, out, run, feedback, gain, step, volume);
        } else {
            runStretch<false, false>(at, from, nullptr, 0, 0.0f, in, out, run, feedback, gain, step, volume);
        }
        i += run;
        position += run;
        if (position >= len) {
            endPass(position, block.detect);
            position = 0;
        }
    }
    return position;
}

VARITAP_VECTORIZE void DelayTap::startFade(uint32_t end, uint32_t last) {
    // What was heard is the line one pass of `last` samples back. After a
    // pass of `end` samples that is the pass before from `end` on (up to
    // `last`), then this pass from 0; or, after a longer pass, this pass from
    // end - last. Either way the line holds `last` samples of it.
    const uint32_t capacity = capacity_;
    if (last > capacity + 1 || end > capacity + 1) return;  // the line was made shorter meanwhile
    const uint32_t fadeSamples = fadeSamples_;
    const uint32_t length = fadeSamples < last ? fadeSamples : last;
    const uint32_t start = last > end ? end : end - last;
    const uint32_t first = last > end && last - start < length ? last - start : length;
    // What would be heard: the fade under way (weights as runSmooth's) goes
    // on towards that signal, in place (step + k >= k).
    const uint32_t step = fadeStep_;
    const uint32_t merged = fadeLength_ > step ? fadeLength_ - step : 0;
    const float inv = merged ? 1.0f / static_cast<float>(fadeLength_) : 0.0f;
    const float* segments[2] = {buffer_ + start, buffer_};
    const uint32_t stops[2] = {first, length};
    uint32_t k = 0;
    for (int s = 0; s < 2; ++s) {
        const float* from = segments[s];
        const uint32_t k0 = k;
        const uint32_t mergeStop = stops[s] < merged ? stops[s] : merged;
        for (; k < mergeStop; ++k) {
            const float w = static_cast<float>(int32_t(step + k + 1)) * inv;
            fade_[k] = fade_[step + k] * (1.0f - w) + from[k - k0] * w;
        }
        if (k < stops[s]) std::memcpy(fade_ + k, from + (k - k0), (stops[s] - k) * sizeof(float));
        k = stops[s];
    }
    fadeStep_ = 0;
    fadeLength_ = length;
}

void DelayTap::endBlock(const TapBlock& block, uint32_t count, uint32_t position, bool inputSilent) {
    const uint32_t len = block.length;
    // Written where the loop went: 0..len, the sample at len only when the
    // head started there.
    const uint32_t end = block.position >= len ? len + 1 : len;
    if (!inputSilent || block.position >= len) {
        if (dirtyEnd_ < end) dirtyEnd_ = end;
        zeroRun_ = 0;
    } else {
        // The zeros this block left, walking back from the head over what it
        // wrote (at most one turn of the line).
        const uint32_t limit = count < len ? count : len;
        uint32_t zeros = 0;
        for (uint32_t p = position; zeros < limit; ++zeros) {
            p = p == 0 ? len - 1 : p - 1;
            if (block.line[p] != 0.0f) break;
        }
        if (zeros < limit && dirtyEnd_ < end) dirtyEnd_ = end;
        zeroRun_ = zeros == count && zeroRun_ < 0xffffffffu - count ? zeroRun_ + count : zeros;
        // Zeros over a whole turn of a line that held nothing beyond it.
        if (zeroRun_ >= len && dirtyEnd_ <= len) dirtyEnd_ = 0;
    }
    finishBlock(block, count, position);
}

void DelayTap::skipBlock(const TapBlock& block, uint32_t count) {
    finishBlock(block, count, advance(block.position, block.length, count));
}

void DelayTap::finishBlock(const TapBlock& block, uint32_t count, uint32_t position) {
    // runSmooth has followed the head itself.
    if (!block.smooth) followHead(block.position, block.length, count);
    position_ = position;
    appliedVolume_ = block.volume;
    lastEnd_ = position;
    lastLength_ = block.length;
}

void DelayTap::addUndelayed(float* input, float* output, uint32_t count, float volume) {
    if (hasVectorUnit()) {
        vsmul(input, volume, input, count);
        vadd(input, output, output, count);
    } else {
        for (uint32_t i = 0; i < count; ++i) output[i] += input[i] * volume;
    }
}

uint32_t DelayTap::advance(uint32_t position, uint32_t length, uint32_t count) {
    if (count == 0) return position;
    if (position >= length) {
        // The first sample is read at the end of the line (or at 0 for a
        // length of 0); the head then starts again at 0.
        position = 0;
        --count;
        if (length == 0) return 0;
    }
    return uint32_t((uint64_t(position) + count) % length);
}

void DelayTap::moveSamples(uint32_t from, uint32_t to, uint32_t n) {
    ScratchBlock block(ScratchPool::current(), n);
    if (block) {
        std::memcpy(block.data(), buffer_ + from, n * sizeof(float));
        std::memcpy(buffer_ + to, block.data(), n * sizeof(float));
    } else {
        std::memmove(buffer_ + to, buffer_ + from, n * sizeof(float));
    }
}

// Stretches (or squeezes) the stored signal ahead of the head towards the
// new length, one chunk per block.
void DelayTap::stretch(uint32_t len, uint32_t count) {
    const uint32_t position = position_;
    if (position >= len) return;
    const uint32_t remaining = len - position;
    const uint32_t chunk = remaining < uint64_t(count) + 1 ? remaining : count + 1;
    const float ratio = static_cast<float>(previousLength_) / static_cast<float>(len);
    uint32_t sourceCount = toSamples(double(static_cast<float>(chunk) * ratio));
    // Never read past the line.
    if (uint64_t(position) + sourceCount > capacity_) sourceCount = capacity_ - position;
    if (remaining - chunk != 0 && sourceCount < chunk) {
        // Growing: make room for the stretched chunk first.
        moveSamples(position + sourceCount, position + chunk, remaining - chunk);
    }
    resampler_->resample(buffer_ + position, sourceCount, buffer_ + position, chunk);
    const int64_t rest = int64_t(previousLength_) - position - sourceCount;
    if (rest > 0 && chunk <= sourceCount) {
        // Shrinking: close the gap behind the squeezed chunk.
        moveSamples(position + sourceCount, position + chunk, uint32_t(rest));
    }
}

void DelayTap::getParameterLabel(int index, char* text) const {
    if (index >= 0 && index < kParameterCount && kTapParameters[index].label)
        kTapParameters[index].label(*this, text);
}

void DelayTap::getParameterDisplay(int index, char* text) const {
    if (index >= 0 && index < kParameterCount && kTapParameters[index].display)
        kTapParameters[index].display(*this, text);
}

void DelayTap::getParameterName(int index, char* text) const {
    if (index >= 0 && index < kParameterCount)
        copyLocalized(text, kTapParameters[index].name, kNameTextMax);
}

}  // namespace varitap
