// varitap-render as a CLAP host: the host record it gives plug-ins (with the
// params extension, counting what the plug-in asks), the event lists of a
// process or flush call, and a module opened through clap_entry. The strict
// checks (ClapCheck) and the rendering instance (ClapInstance) share them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/clap/ClapInterface.h"

namespace render {

struct ClapHost {
    varitap::clap::clap_host record{};
    varitap::clap::clap_host_params params{};
    int rescans = 0;
    int flushRequests = 0;

    ClapHost();
    ClapHost(const ClapHost&) = delete;
    ClapHost& operator=(const ClapHost&) = delete;
};

// A fixed list of parameter value events.
struct ClapInputEvents {
    std::vector<varitap::clap::clap_event_param_value> values;
    varitap::clap::clap_input_events record;

    ClapInputEvents();
    ClapInputEvents(const ClapInputEvents&) = delete;
    ClapInputEvents& operator=(const ClapInputEvents&) = delete;
    void add(varitap::clap::clap_id id, double value);
};

// An output queue that takes every event and counts them.
struct ClapOutputEvents {
    int count = 0;
    int malformed = 0;  // shorter than an event header
    varitap::clap::clap_output_events record;

    ClapOutputEvents();
    ClapOutputEvents(const ClapOutputEvents&) = delete;
    ClapOutputEvents& operator=(const ClapOutputEvents&) = delete;
};

// A .clap module: loaded, its entry of version 1.x initialised and its plug-in
// factory found; deinitialised and unloaded with the object (after every
// instance it made is destroyed).
class ClapModule {
public:
    ClapModule() = default;
    ~ClapModule();
    ClapModule(const ClapModule&) = delete;
    ClapModule& operator=(const ClapModule&) = delete;

    // False with error naming what is missing.
    bool open(const std::string& path, std::string& error);
    const varitap::clap::clap_plugin_entry* entry() const { return entry_; }
    const varitap::clap::clap_plugin_factory* factory() const { return factory_; }

private:
    void* library_ = nullptr;
    const varitap::clap::clap_plugin_entry* entry_ = nullptr;
    const varitap::clap::clap_plugin_factory* factory_ = nullptr;
};

}  // namespace render
