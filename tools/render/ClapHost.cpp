#include "tools/render/ClapHost.h"

#include <dlfcn.h>

#include <cstring>

namespace render {

using namespace varitap::clap;

ClapHost::ClapHost() {
    record.clap_version = kVersion;
    record.host_data = this;
    record.name = "varitap-render";
    record.vendor = "Brelmo";
    record.url = "";
    record.version = "1";
    record.get_extension = [](const clap_host* h, const char* id) -> const void* {
        ClapHost* self = static_cast<ClapHost*>(h->host_data);
        return id && std::strcmp(id, kExtParams) == 0 ? &self->params : nullptr;
    };
    record.request_restart = [](const clap_host*) {};
    record.request_process = [](const clap_host*) {};
    record.request_callback = [](const clap_host*) {};
    params.rescan = [](const clap_host* h, uint32_t) { ++static_cast<ClapHost*>(h->host_data)->rescans; };
    params.clear = [](const clap_host*, clap_id, uint32_t) {};
    params.request_flush = [](const clap_host* h) { ++static_cast<ClapHost*>(h->host_data)->flushRequests; };
}

ClapInputEvents::ClapInputEvents()
    : record{this,
             [](const clap_input_events* l) {
                 return static_cast<uint32_t>(static_cast<ClapInputEvents*>(l->ctx)->values.size());
             },
             [](const clap_input_events* l, uint32_t i) -> const clap_event_header* {
                 auto* self = static_cast<ClapInputEvents*>(l->ctx);
                 return i < self->values.size() ? &self->values[i].header : nullptr;
             }} {}

void ClapInputEvents::add(clap_id id, double value) {
    clap_event_param_value e{};
    e.header.size = sizeof e;
    e.header.type = kEventParamValue;
    e.param_id = id;
    e.note_id = -1;
    e.port_index = e.channel = e.key = -1;
    e.value = value;
    values.push_back(e);
}

ClapOutputEvents::ClapOutputEvents()
    : record{this, [](const clap_output_events* l, const clap_event_header* e) {
                 auto* self = static_cast<ClapOutputEvents*>(l->ctx);
                 ++self->count;
                 if (!e || e->size < sizeof(clap_event_header)) ++self->malformed;
                 return true;
             }} {}

ClapModule::~ClapModule() {
    if (factory_) entry_->deinit();
    if (library_) ::dlclose(library_);
}

bool ClapModule::open(const std::string& path, std::string& error) {
    library_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_) {
        const char* text = ::dlerror();
        std::string reason = text ? text : "unknown";
        // dlerror's text starts with the path again.
        if (reason.compare(0, path.size() + 2, path + ": ") == 0) reason.erase(0, path.size() + 2);
        error = "cannot be loaded: " + reason;
        return false;
    }
    entry_ = static_cast<const clap_plugin_entry*>(::dlsym(library_, "clap_entry"));
    if (!entry_) error = "no clap_entry";
    else if (entry_->clap_version.major != 1) error = "clap_entry: version is not 1.x";
    else if (!entry_->init(path.c_str())) error = "init refused";
    else if (!(factory_ = static_cast<const clap_plugin_factory*>(entry_->get_factory(kPluginFactoryId)))) {
        entry_->deinit();
        error = "no plug-in factory";
    }
    return factory_ != nullptr;
}

}  // namespace render
