// The parts of the CLAP 1.1 binary interface Varitap uses, as plain C
// records: the entry, the plug-in factory, the plug-in and host records, the
// process call with its buffers and events, and the extensions (audio ports,
// parameters, state, latency, tail, editor, timers, file descriptors). Layouts
// and numbers follow the published ABI; every record is read by hosts built
// against it, so fields stay in this order with these types.
#pragma once

#include <cstdint>

namespace varitap::clap {

extern "C" {

using clap_id = uint32_t;
constexpr clap_id kInvalidId = UINT32_MAX;
constexpr uint32_t kNameSize = 256;
constexpr uint32_t kPathSize = 1024;

struct clap_version {
    uint32_t major;
    uint32_t minor;
    uint32_t revision;
};
constexpr clap_version kVersion = {1, 1, 10};

struct clap_host;
struct clap_plugin;
struct clap_plugin_descriptor;

struct clap_plugin_entry {
    clap_version clap_version;
    bool (*init)(const char* plugin_path);
    void (*deinit)();
    const void* (*get_factory)(const char* factory_id);
};

constexpr const char* kPluginFactoryId = "clap.plugin-factory";

struct clap_plugin_factory {
    uint32_t (*get_plugin_count)(const clap_plugin_factory* factory);
    const clap_plugin_descriptor* (*get_plugin_descriptor)(const clap_plugin_factory* factory, uint32_t index);
    const clap_plugin* (*create_plugin)(const clap_plugin_factory* factory, const clap_host* host,
                                        const char* plugin_id);
};

struct clap_plugin_descriptor {
    clap_version clap_version;
    const char* id;
    const char* name;
    const char* vendor;
    const char* url;
    const char* manual_url;
    const char* support_url;
    const char* version;
    const char* description;
    const char* const* features;  // null-terminated
};

// Events.
struct clap_event_header {
    uint32_t size;
    uint32_t time;
    uint16_t space_id;
    uint16_t type;
    uint32_t flags;
};
constexpr uint16_t kCoreEventSpaceId = 0;
constexpr uint32_t kEventIsLive = 1u << 0;
constexpr uint32_t kEventDontRecord = 1u << 1;
enum : uint16_t {
    kEventParamValue = 5,
    kEventParamMod = 6,
    kEventParamGestureBegin = 7,
    kEventParamGestureEnd = 8,
    kEventTransport = 9,
};

struct clap_event_param_value {
    clap_event_header header;
    clap_id param_id;
    void* cookie;
    int32_t note_id;
    int16_t port_index;
    int16_t channel;
    int16_t key;
    double value;
};

struct clap_event_param_gesture {
    clap_event_header header;
    clap_id param_id;
};

// Fixed-point times: beats and seconds times 2^31.
constexpr int64_t kTimeFactor = int64_t(1) << 31;
struct clap_event_transport {
    clap_event_header header;
    uint32_t flags;
    int64_t song_pos_beats;
    int64_t song_pos_seconds;
    double tempo;
    double tempo_inc;
    int64_t loop_start_beats;
    int64_t loop_end_beats;
    int64_t loop_start_seconds;
    int64_t loop_end_seconds;
    int64_t bar_start;
    int32_t bar_number;
    uint16_t tsig_num;
    uint16_t tsig_denom;
};
enum : uint32_t {
    kTransportHasTempo = 1u << 0,
    kTransportHasBeatsTimeline = 1u << 1,
    kTransportHasSecondsTimeline = 1u << 2,
    kTransportHasTimeSignature = 1u << 3,
    kTransportIsPlaying = 1u << 4,
    kTransportIsRecording = 1u << 5,
    kTransportIsLoopActive = 1u << 6,
    kTransportIsWithinPreRoll = 1u << 7,
};

struct clap_input_events {
    void* ctx;
    uint32_t (*size)(const clap_input_events* list);
    const clap_event_header* (*get)(const clap_input_events* list, uint32_t index);
};

struct clap_output_events {
    void* ctx;
    bool (*try_push)(const clap_output_events* list, const clap_event_header* event);
};

// Processing.
struct clap_audio_buffer {
    float** data32;
    double** data64;
    uint32_t channel_count;
    uint32_t latency;
    uint64_t constant_mask;
};

struct clap_process {
    int64_t steady_time;
    uint32_t frames_count;
    const clap_event_transport* transport;
    const clap_audio_buffer* audio_inputs;
    clap_audio_buffer* audio_outputs;
    uint32_t audio_inputs_count;
    uint32_t audio_outputs_count;
    const clap_input_events* in_events;
    const clap_output_events* out_events;
};

using clap_process_status = int32_t;
enum : int32_t {
    kProcessError = 0,
    kProcessContinue = 1,
    kProcessContinueIfNotQuiet = 2,
    kProcessTail = 3,
    kProcessSleep = 4,
};

struct clap_plugin {
    const clap_plugin_descriptor* desc;
    void* plugin_data;
    bool (*init)(const clap_plugin* plugin);
    void (*destroy)(const clap_plugin* plugin);
    bool (*activate)(const clap_plugin* plugin, double sample_rate, uint32_t min_frames_count,
                     uint32_t max_frames_count);
    void (*deactivate)(const clap_plugin* plugin);
    bool (*start_processing)(const clap_plugin* plugin);
    void (*stop_processing)(const clap_plugin* plugin);
    void (*reset)(const clap_plugin* plugin);
    clap_process_status (*process)(const clap_plugin* plugin, const clap_process* process);
    const void* (*get_extension)(const clap_plugin* plugin, const char* id);
    void (*on_main_thread)(const clap_plugin* plugin);
};

struct clap_host {
    clap_version clap_version;
    void* host_data;
    const char* name;
    const char* vendor;
    const char* url;
    const char* version;
    const void* (*get_extension)(const clap_host* host, const char* extension_id);
    void (*request_restart)(const clap_host* host);
    void (*request_process)(const clap_host* host);
    void (*request_callback)(const clap_host* host);
};

// "clap.audio-ports"
constexpr const char* kExtAudioPorts = "clap.audio-ports";
constexpr const char* kPortStereo = "stereo";
constexpr uint32_t kAudioPortIsMain = 1u << 0;
struct clap_audio_port_info {
    clap_id id;
    char name[kNameSize];
    uint32_t flags;
    uint32_t channel_count;
    const char* port_type;
    clap_id in_place_pair;
};
struct clap_plugin_audio_ports {
    uint32_t (*count)(const clap_plugin* plugin, bool is_input);
    bool (*get)(const clap_plugin* plugin, uint32_t index, bool is_input, clap_audio_port_info* info);
};

// "clap.params"
constexpr const char* kExtParams = "clap.params";
enum : uint32_t {
    kParamIsStepped = 1u << 0,
    kParamIsPeriodic = 1u << 1,
    kParamIsHidden = 1u << 2,
    kParamIsReadonly = 1u << 3,
    kParamIsBypass = 1u << 4,
    kParamIsAutomatable = 1u << 5,
    kParamIsModulatable = 1u << 10,
    kParamRequiresProcess = 1u << 15,
    kParamIsEnum = 1u << 16,
};
struct clap_param_info {
    clap_id id;
    uint32_t flags;
    void* cookie;
    char name[kNameSize];
    char module[kPathSize];
    double min_value;
    double max_value;
    double default_value;
};
struct clap_plugin_params {
    uint32_t (*count)(const clap_plugin* plugin);
    bool (*get_info)(const clap_plugin* plugin, uint32_t param_index, clap_param_info* param_info);
    bool (*get_value)(const clap_plugin* plugin, clap_id param_id, double* out_value);
    bool (*value_to_text)(const clap_plugin* plugin, clap_id param_id, double value, char* out_buffer,
                          uint32_t out_buffer_capacity);
    bool (*text_to_value)(const clap_plugin* plugin, clap_id param_id, const char* param_value_text,
                          double* out_value);
    void (*flush)(const clap_plugin* plugin, const clap_input_events* in, const clap_output_events* out);
};
enum : uint32_t {
    kParamRescanValues = 1u << 0,
    kParamRescanText = 1u << 1,
    kParamRescanInfo = 1u << 2,
    kParamRescanAll = 1u << 3,
};
struct clap_host_params {
    void (*rescan)(const clap_host* host, uint32_t flags);
    void (*clear)(const clap_host* host, clap_id param_id, uint32_t flags);
    void (*request_flush)(const clap_host* host);
};

// "clap.state"
constexpr const char* kExtState = "clap.state";
struct clap_ostream {
    void* ctx;
    int64_t (*write)(const clap_ostream* stream, const void* buffer, uint64_t size);
};
struct clap_istream {
    void* ctx;
    int64_t (*read)(const clap_istream* stream, void* buffer, uint64_t size);
};
struct clap_plugin_state {
    bool (*save)(const clap_plugin* plugin, const clap_ostream* stream);
    bool (*load)(const clap_plugin* plugin, const clap_istream* stream);
};

// "clap.latency" and "clap.tail"
constexpr const char* kExtLatency = "clap.latency";
constexpr const char* kExtTail = "clap.tail";
struct clap_plugin_latency {
    uint32_t (*get)(const clap_plugin* plugin);
};
struct clap_plugin_tail {
    uint32_t (*get)(const clap_plugin* plugin);  // UINT32_MAX: infinite
};

// "clap.gui"
constexpr const char* kExtGui = "clap.gui";
constexpr const char* kWindowApiX11 = "x11";
struct clap_window {
    const char* api;
    union {
        unsigned long x11;
        void* cocoa;
        void* win32;
        void* ptr;
    };
};
struct clap_gui_resize_hints {
    bool can_resize_horizontally;
    bool can_resize_vertically;
    bool preserve_aspect_ratio;
    uint32_t aspect_ratio_width;
    uint32_t aspect_ratio_height;
};
struct clap_plugin_gui {
    bool (*is_api_supported)(const clap_plugin* plugin, const char* api, bool is_floating);
    bool (*get_preferred_api)(const clap_plugin* plugin, const char** api, bool* is_floating);
    bool (*create)(const clap_plugin* plugin, const char* api, bool is_floating);
    void (*destroy)(const clap_plugin* plugin);
    bool (*set_scale)(const clap_plugin* plugin, double scale);
    bool (*get_size)(const clap_plugin* plugin, uint32_t* width, uint32_t* height);
    bool (*can_resize)(const clap_plugin* plugin);
    bool (*get_resize_hints)(const clap_plugin* plugin, clap_gui_resize_hints* hints);
    bool (*adjust_size)(const clap_plugin* plugin, uint32_t* width, uint32_t* height);
    bool (*set_size)(const clap_plugin* plugin, uint32_t width, uint32_t height);
    bool (*set_parent)(const clap_plugin* plugin, const clap_window* window);
    bool (*set_transient)(const clap_plugin* plugin, const clap_window* window);
    void (*suggest_title)(const clap_plugin* plugin, const char* title);
    bool (*show)(const clap_plugin* plugin);
    bool (*hide)(const clap_plugin* plugin);
};
struct clap_host_gui {
    void (*resize_hints_changed)(const clap_host* host);
    bool (*request_resize)(const clap_host* host, uint32_t width, uint32_t height);
    bool (*request_show)(const clap_host* host);
    bool (*request_hide)(const clap_host* host);
    void (*closed)(const clap_host* host, bool was_destroyed);
};

// "clap.timer-support" and "clap.posix-fd-support"
constexpr const char* kExtTimerSupport = "clap.timer-support";
constexpr const char* kExtPosixFdSupport = "clap.posix-fd-support";
struct clap_plugin_timer_support {
    void (*on_timer)(const clap_plugin* plugin, clap_id timer_id);
};
struct clap_host_timer_support {
    bool (*register_timer)(const clap_host* host, uint32_t period_ms, clap_id* timer_id);
    bool (*unregister_timer)(const clap_host* host, clap_id timer_id);
};
enum : uint32_t { kFdRead = 1u << 0, kFdWrite = 1u << 1, kFdError = 1u << 2 };
struct clap_plugin_posix_fd_support {
    void (*on_fd)(const clap_plugin* plugin, int fd, uint32_t flags);
};
struct clap_host_posix_fd_support {
    bool (*register_fd)(const clap_host* host, int fd, uint32_t flags);
    bool (*modify_fd)(const clap_host* host, int fd, uint32_t flags);
    bool (*unregister_fd)(const clap_host* host, int fd);
};

}  // extern "C"

// Layouts on LP64 (x86_64, aarch64), as hosts read them.
static_assert(sizeof(clap_event_header) == 16);
static_assert(sizeof(clap_event_param_value) == 56);
static_assert(sizeof(clap_event_transport) == 104);
static_assert(sizeof(clap_audio_buffer) == 32);
static_assert(sizeof(clap_process) == 64);
static_assert(sizeof(clap_param_info) == 1320);
static_assert(sizeof(clap_plugin) == 96);
static_assert(sizeof(clap_host) == 88);

}  // namespace varitap::clap
