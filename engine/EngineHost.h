// What the block processing and the modulators need of the plug-in instance.
// DelayEffect implements it on top of the host callback; tests fake it.
#pragma once

#include <cstdint>

namespace varitap {

// The host's time information, as far as the engine reads it.
struct HostTimeInfo {
    double samplePos = 0.0;   // song position in samples
    double sampleRate = 0.0;
    double tempo = 0.0;       // beats per minute
    int32_t flags = 0;        // kTransportPlaying, kAutomationWriting, kTempoValid, ...

    static constexpr int32_t kTransportPlaying = 0x2;
    static constexpr int32_t kAutomationWriting = 0x40;
    static constexpr int32_t kTempoValid = 0x400;
};

class EngineHost {
public:
    virtual ~EngineHost() = default;

    // audio thread. The host's answer to a time request with these flags, or
    // null when it gives none. The record stays valid until the next call.
    virtual const HostTimeInfo* getTimeInfo(int32_t requestFlags) = 0;
    // audio thread. Whether the host reports the pin connected.
    virtual bool isInputConnected(int32_t index) = 0;
    virtual bool isOutputConnected(int32_t index) = 0;
    // any thread.
    virtual float getSampleRate() const = 0;

    // The parameter path the modulators read and write through (any thread,
    // including audio; takes no lock).
    virtual float getParameter(int32_t index) = 0;
    virtual void setParameter(int32_t index, float value) = 0;
    // Stores the value and tells the host, which records it as automation.
    virtual void setParameterAutomated(int32_t index, float value) = 0;
    // ui thread. The parameter's name as the host sees it.
    virtual void getParameterName(int32_t index, char* text) = 0;
};

}  // namespace varitap
