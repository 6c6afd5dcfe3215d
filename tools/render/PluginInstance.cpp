#include "tools/render/PluginInstance.h"

#include "tools/render/ClapInstance.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace render {

namespace {

using vst::VstInt32;
using vst::VstIntPtr;

// The instance whose entry point is running: the plug-in may call back with
// a null effect (audioMasterVersion) before it has an AEffect to give.
PluginInstance* gStarting = nullptr;

std::string realPath(const std::string& path) {
    char buffer[PATH_MAX];
    if (!::realpath(path.c_str(), buffer)) return {};
    return buffer;
}

bool isDirectory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

std::string baseName(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string parentOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The bundle's module: <bundle>/Contents/<arch>-linux/<stem>.so or
// <stem>.clap when present, otherwise the first .so or .clap in that folder
// in name order.
std::string sharedObjectInBundle(const std::string& bundle) {
    std::string folder = bundle + "/Contents/" VARITAP_ARCH_DIR;
    std::string stem = baseName(bundle);
    if (endsWith(stem, ".vst")) stem.resize(stem.size() - 4);
    for (const char* suffix : {".so", ".clap"})
        if (exists(folder + "/" + stem + suffix)) return folder + "/" + stem + suffix;
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (dirent* entry = ::readdir(dir)) {
            std::string name = entry->d_name;
            if (endsWith(name, ".so") || endsWith(name, ".clap")) names.push_back(name);
        }
        ::closedir(dir);
    }
    if (names.empty()) return {};
    std::sort(names.begin(), names.end());
    return folder + "/" + names.front();
}

}  // namespace

std::string defaultPluginPath() {
    std::string built = VARITAP_DEFAULT_BUNDLE;
    if (exists(built)) return built;
    if (exists("/usr/local/lib/vst/Varitap.vst")) return "/usr/local/lib/vst/Varitap.vst";
    if (const char* home = std::getenv("HOME")) {
        std::string user = std::string(home) + "/.vst/Varitap.vst";
        if (exists(user)) return user;
    }
    return built;  // reported as missing by locatePlugin
}

bool locatePlugin(const std::string& path, PluginLocation& location, std::string& error) {
    location = {};
    if (!exists(path)) {
        error = "no such file or folder";
        return false;
    }
    if (isDirectory(path)) {
        location.bundle = realPath(path);
        std::string object = sharedObjectInBundle(location.bundle);
        if (object.empty()) {
            error = "not a VST2 plug-in (a folder without Contents/" VARITAP_ARCH_DIR "/*.so or *.clap)";
            return false;
        }
        location.sharedObject = realPath(object);
        return true;
    }
    location.sharedObject = realPath(path);
    // X.vst/Contents/<arch>-linux/X.so: three levels up is the bundle.
    std::string archFolder = parentOf(location.sharedObject);
    std::string contents = parentOf(archFolder);
    if (baseName(archFolder) == VARITAP_ARCH_DIR && baseName(contents) == "Contents")
        location.bundle = parentOf(contents);
    return true;
}

std::unique_ptr<HostedPlugin> loadPlugin(const std::string& path, std::string& error) {
    PluginLocation location;
    if (!locatePlugin(path, location, error)) return nullptr;
    if (endsWith(location.sharedObject, ".clap")) return ClapInstance::load(location, error);
    return PluginInstance::load(path, error);
}

int HostedPlugin::findParameter(const std::string& name) const {
    for (int i = 0; i < numParams(); ++i)
        if (parameterName(i) == name) return i;
    return -1;
}

void HostedPlugin::prepare(double sampleRate, int blockSize, double tempo) {
    blockSize_ = std::max(1, blockSize);
    transport_ = Transport{};
    transport_.sampleRate = sampleRate;
    transport_.tempo = tempo;
    auto makeBuffers = [this](int count, std::vector<std::vector<float>>& buffers,
                              std::vector<float*>& pointers) {
        buffers.assign(std::max(0, count), std::vector<float>(blockSize_, 0.0f));
        pointers.clear();
        for (auto& buffer : buffers) pointers.push_back(buffer.data());
        pointers.push_back(nullptr);  // never read; keeps data() non-null
    };
    makeBuffers(numInputs(), inputBuffers_, inputPointers_);
    makeBuffers(numOutputs(), outputBuffers_, outputPointers_);
}

const char* PluginInstance::hostName() { return "varitap-render"; }

std::unique_ptr<PluginInstance> PluginInstance::load(const std::string& path, std::string& error) {
    std::unique_ptr<PluginInstance> instance(new PluginInstance);
    if (!locatePlugin(path, instance->location_, error)) return nullptr;
    const std::string& object = instance->location_.sharedObject;

    instance->library_ = ::dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!instance->library_) {
        const char* reason = ::dlerror();
        error = std::string("not a VST2 plug-in (cannot load it: ") + (reason ? reason : "unknown") + ")";
        // The reason from dlerror starts with the path again; keep it short.
        auto colon = error.find(object + ": ");
        if (colon != std::string::npos) error.erase(colon, object.size() + 2);
        return nullptr;
    }

    // Linux hosts look for VSTPluginMain first, then the older name main. A
    // symbol found elsewhere (a dependency's) does not count.
    using Entry = vst::AEffect* (*)(vst::audioMasterCallback);
    void* symbol = nullptr;
    for (const char* name : {"VSTPluginMain", "main"}) {
        void* candidate = ::dlsym(instance->library_, name);
        Dl_info info{};
        if (candidate && ::dladdr(candidate, &info) && info.dli_fname &&
            realPath(info.dli_fname) == object) {
            symbol = candidate;
            break;
        }
    }
    if (!symbol) {
        error = "not a VST2 plug-in (no VSTPluginMain or main entry point)";
        return nullptr;
    }
    Entry entry = nullptr;
    static_assert(sizeof(entry) == sizeof(symbol));
    std::memcpy(&entry, &symbol, sizeof(entry));

    gStarting = instance.get();
    vst::AEffect* effect = entry(&PluginInstance::hostCallback);
    gStarting = nullptr;
    if (!effect) {
        error = "the plug-in refused to start (its entry point returned nothing)";
        return nullptr;
    }
    if (effect->magic != vst::kEffectMagic || !effect->dispatcher) {
        error = "not a VST2 plug-in (its entry point returned no AEffect record)";
        return nullptr;
    }
    if (!effect->processReplacing && !effect->process) {
        error = "not a VST2 plug-in (it has no process function)";
        return nullptr;
    }
    effect->user = instance.get();
    instance->effect_ = effect;
    instance->dispatch(vst::effOpen);
    return instance;
}

PluginInstance::~PluginInstance() {
    if (effect_) {
        if (running_) stop();
        dispatch(vst::effClose);  // the plug-in deletes itself here
        effect_ = nullptr;
    }
    if (library_) ::dlclose(library_);
}

VstIntPtr PluginInstance::dispatch(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr,
                                   float opt) const {
    return effect_->dispatcher(effect_, opcode, index, value, ptr, opt);
}

std::string PluginInstance::text(VstInt32 opcode, int index) const {
    // Generous buffer: many plug-ins ignore the 8- and 24-character limits.
    char buffer[512] = {};
    dispatch(opcode, index, 0, buffer);
    buffer[sizeof(buffer) - 1] = 0;
    return buffer;
}

std::string PluginInstance::parameterName(int index) const { return text(vst::effGetParamName, index); }
std::string PluginInstance::parameterDisplay(int index) const {
    return text(vst::effGetParamDisplay, index);
}
std::string PluginInstance::parameterLabel(int index) const {
    return text(vst::effGetParamLabel, index);
}
std::string PluginInstance::programName() const { return text(vst::effGetProgramName, 0); }
std::string PluginInstance::effectName() const { return text(vst::effGetEffectName, 0); }

void PluginInstance::parameterRange(int index, float& low, float& high) const {
    low = 0.0f;
    high = 1.0f;
    constexpr int kFirstModulator = 91, kModulatorSize = 15, kIndexSlot = 1;
    if (isVaritap() && index >= kFirstModulator && (index - kFirstModulator) % kModulatorSize == kIndexSlot)
        high = static_cast<float>(numParams() - 1);
}

float PluginInstance::getParameter(int index) const { return effect_->getParameter(effect_, index); }

void PluginInstance::setParameter(int index, float value) {
    effect_->setParameter(effect_, index, value);
}

void PluginInstance::setProgram(int program) { dispatch(vst::effSetProgram, 0, program); }

void PluginInstance::setProgramName(const std::string& name) {
    // Hosts keep at most 24 characters.
    char text[vst::kVstMaxProgNameLen + 1] = {};
    std::strncpy(text, name.c_str(), vst::kVstMaxProgNameLen);
    dispatch(vst::effSetProgramName, 0, 0, text);
}

void PluginInstance::setSampleRate(double sampleRate) {
    dispatch(vst::effSetSampleRate, 0, 0, nullptr, static_cast<float>(sampleRate));
}

void PluginInstance::start(double sampleRate, int blockSize, int connectedInputs,
                           int connectedOutputs, double tempo) {
    if (running_) stop();
    connectedInputs_ = connectedInputs;
    connectedOutputs_ = connectedOutputs;
    prepare(sampleRate, blockSize, tempo);
    setSampleRate(sampleRate);
    dispatch(vst::effSetBlockSize, 0, blockSize_);
    dispatch(vst::effMainsChanged, 0, 1);
    dispatch(vst::effStartProcess);
    running_ = true;
}

void PluginInstance::process(int frames) {
    frames = std::clamp(frames, 0, blockSize_);
    if (static_cast<size_t>(std::max(0, numInputs())) > inputBuffers_.size() ||
        static_cast<size_t>(std::max(0, numOutputs())) > outputBuffers_.size()) {
        // The plug-in grew its pins after start (audioMasterIOChanged is not
        // supported here): it would write past our buffers, so it is not run.
        for (auto& buffer : outputBuffers_) std::fill(buffer.begin(), buffer.begin() + frames, 0.0f);
    } else if (effect_->flags & vst::effFlagsCanReplacing && effect_->processReplacing) {
        effect_->processReplacing(effect_, inputs(), outputs(), frames);
    } else {
        // The accumulating form adds into what the outputs hold.
        for (auto& buffer : outputBuffers_) std::fill(buffer.begin(), buffer.begin() + frames, 0.0f);
        effect_->process(effect_, inputs(), outputs(), frames);
    }
    transport_.samplePos += frames;
    transport_.changed = false;
}

void PluginInstance::stop() {
    if (!running_) return;
    dispatch(vst::effStopProcess);
    dispatch(vst::effMainsChanged, 0, 0);
    running_ = false;
}

VstIntPtr PluginInstance::hostCallback(vst::AEffect* effect, VstInt32 opcode, VstInt32 index,
                                       VstIntPtr value, void* ptr, float opt) {
    PluginInstance* instance = effect && effect->user ? static_cast<PluginInstance*>(effect->user)
                                                      : gStarting;
    if (opcode == vst::audioMasterVersion) return vst::kVstVersion;
    if (!instance) return 0;
    return instance->answer(opcode, index, value, ptr, opt);
}

VstIntPtr PluginInstance::answer(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr,
                                 float /*opt*/) {
    switch (opcode) {
    case vst::audioMasterAutomate:
        // Recorded only: the value is already in the plug-in.
        ++automateCount_;
        lastAutomatedIndex_ = index;
        return 0;
    case vst::audioMasterCurrentId:
        return effect_ ? effect_->uniqueID : 0;
    case vst::audioMasterPinConnected: {
        // value 0 asks about an input pin, 1 about an output; 0 means connected.
        int connected = value == 0 ? connectedInputs_ : connectedOutputs_;
        return index >= 0 && index < connected ? 0 : 1;
    }
    case vst::audioMasterGetTime: {
        const Transport& t = transport_;
        vst::VstTimeInfo& info = timeInfo_;
        info = vst::VstTimeInfo{};
        info.samplePos = t.samplePos;
        info.sampleRate = t.sampleRate;
        info.tempo = t.tempo;
        info.ppqPos = t.sampleRate > 0.0 ? t.samplePos / t.sampleRate * t.tempo / 60.0 : 0.0;
        info.barStartPos = std::floor(info.ppqPos / 4.0) * 4.0;
        info.timeSigNumerator = 4;
        info.timeSigDenominator = 4;
        info.nanoSeconds = static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                   std::chrono::steady_clock::now().time_since_epoch())
                                                   .count());
        info.flags = vst::kVstTransportPlaying | vst::kVstTempoValid | vst::kVstPpqPosValid |
                     vst::kVstBarsValid | vst::kVstTimeSigValid | vst::kVstNanosValid;
        if (t.changed) info.flags |= vst::kVstTransportChanged;
        return reinterpret_cast<VstIntPtr>(&timeInfo_);
    }
    case vst::audioMasterGetSampleRate:
        return static_cast<VstIntPtr>(transport_.sampleRate);
    case vst::audioMasterGetBlockSize:
        return blockSize_;
    case vst::audioMasterGetVendorString:
    case vst::audioMasterGetProductString:
        if (ptr) std::strcpy(static_cast<char*>(ptr), hostName());  // fits in 64 bytes
        return ptr ? 1 : 0;
    case vst::audioMasterGetVendorVersion:
        return 1;
    case vst::audioMasterCanDo:
        return ptr && std::strcmp(static_cast<const char*>(ptr), "sendVstTimeInfo") == 0 ? 1 : 0;
    case vst::audioMasterGetLanguage:
        return 1;  // English
    case vst::audioMasterUpdateDisplay:
    case vst::audioMasterBeginEdit:
    case vst::audioMasterEndEdit:
    case vst::audioMasterIdle:
        return 1;
    default:
        return 0;  // not supported by this host
    }
}

}  // namespace render
