#include "host/vst2/AudioEffectX.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace varitap {

using namespace vst;

namespace {

// The record declares eight speakers; records for more channels are larger.
// Speakers are reached through a plain pointer so that an index past eight
// stays inside the allocation rather than past a declared array bound.
VstSpeakerProperties* speakersOf(VstSpeakerArrangement* arr) {
    return reinterpret_cast<VstSpeakerProperties*>(reinterpret_cast<char*>(arr) +
                                                   offsetof(VstSpeakerArrangement, speakers));
}
const VstSpeakerProperties* speakersOf(const VstSpeakerArrangement* arr) {
    return reinterpret_cast<const VstSpeakerProperties*>(
        reinterpret_cast<const char*>(arr) + offsetof(VstSpeakerArrangement, speakers));
}

// Arrangements beyond this many channels are not made (a host's count is
// not trusted to size an allocation).
constexpr int32_t kMaxArrangementChannels = 1024;

}  // namespace

AudioEffectX::AudioEffectX(audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams)
    : AudioEffect(audioMaster, numPrograms, numParams) {}

VstIntPtr AudioEffectX::dispatcher(int32_t opcode, int32_t index, VstIntPtr value, void* ptr,
                                   float opt) {
    char* text = static_cast<char*>(ptr);
    switch (opcode) {
        case effProcessEvents:
            return ptr ? processEvents(ptr) : 0;
        case effCanBeAutomated:
            return canParameterBeAutomated(index) ? 1 : 0;
        case effString2Parameter:
            return text && string2parameter(index, text) ? 1 : 0;
        case effGetNumProgramCategories:
            return getNumCategories();
        case effGetProgramNameIndexed:
            return text && getProgramNameIndexed(static_cast<int32_t>(value), index, text) ? 1 : 0;
        case effCopyProgram:
            return copyProgram(index) ? 1 : 0;
        case effGetInputProperties:
        case effGetOutputProperties:
            return 0;
        case effGetPlugCategory:
            return getPlugCategory();
        case effSetSpeakerArrangement:
            // value carries the input arrangement, ptr the output one.
            return setSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement*>(value),
                                         static_cast<VstSpeakerArrangement*>(ptr))
                       ? 1
                       : 0;
        case effGetSpeakerArrangement:
            // value and ptr point to where the two record addresses go.
            return getSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement**>(value),
                                         static_cast<VstSpeakerArrangement**>(ptr))
                       ? 1
                       : 0;
        case effSetBlockSizeAndSampleRate:
            setBlockSize(static_cast<int32_t>(value));
            setSampleRate(opt);
            return 1;
        case effSetBypass:
            return setBypass(value != 0) ? 1 : 0;
        case effGetEffectName:
            return text && getEffectName(text) ? 1 : 0;
        case effGetVendorString:
            return text && getVendorString(text) ? 1 : 0;
        case effGetProductString:
            return text && getProductString(text) ? 1 : 0;
        case effGetVendorVersion:
            return getVendorVersion();
        case effCanDo:
            return text ? canDo(text) : 0;
        case effGetTailSize:
            return getGetTailSize();
        case effGetVstVersion:
            return getVstVersion();
        case effKeysRequired:
            return keysRequired() ? 1 : 0;
        default:
            return AudioEffect::dispatcher(opcode, index, value, ptr, opt);
    }
}

bool AudioEffectX::getHostVendorString(char* text) {
    if (!text) return false;
    return callHost(audioMasterGetVendorString, 0, 0, text) != 0;
}

bool AudioEffectX::isInputConnected(int32_t index) {
    return callHost(audioMasterPinConnected, index, 0) == 0;
}

bool AudioEffectX::isOutputConnected(int32_t index) {
    return callHost(audioMasterPinConnected, index, 1) == 0;
}

VstTimeInfo* AudioEffectX::getTimeInfo(int32_t filter) {
    return reinterpret_cast<VstTimeInfo*>(callHost(audioMasterGetTime, 0, filter));
}

bool AudioEffectX::ioChanged() { return callHost(audioMasterIOChanged) != 0; }

bool AudioEffectX::sizeWindow(int32_t width, int32_t height) {
    return callHost(audioMasterSizeWindow, width, height) != 0;
}

bool AudioEffectX::allocateArrangement(VstSpeakerArrangement** arr, int32_t channels) {
    if (!arr) return false;
    deallocateArrangement(arr);
    if (channels < 0 || channels > kMaxArrangementChannels) return false;
    size_t speakers = static_cast<size_t>(std::max<int32_t>(channels, 8));
    size_t bytes = offsetof(VstSpeakerArrangement, speakers) + speakers * sizeof(VstSpeakerProperties);
    auto* made = static_cast<VstSpeakerArrangement*>(std::calloc(1, bytes));
    if (!made) return false;
    made->numChannels = channels;
    *arr = made;
    return true;
}

bool AudioEffectX::deallocateArrangement(VstSpeakerArrangement** arr) {
    if (!arr) return false;
    std::free(*arr);
    *arr = nullptr;
    return true;
}

bool AudioEffectX::matchArrangement(VstSpeakerArrangement** to, const VstSpeakerArrangement* from) {
    if (!to || !from) return false;
    if (*to == from) return true;
    if (!allocateArrangement(to, from->numChannels)) return false;
    (*to)->type = from->type;
    std::memcpy(speakersOf(*to), speakersOf(from),
                static_cast<size_t>(from->numChannels) * sizeof(VstSpeakerProperties));
    return true;
}

}  // namespace varitap
