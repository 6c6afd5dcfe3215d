// The CLAP plug-in module's entry, clap_entry: init and deinit (counted, so
// that a host may call them more than once), and the plug-in factory with the
// one descriptor. The linker version script keeps every other symbol hidden.
#include <atomic>
#include <cstring>

#include "editor/DelayEditor.h"
#include "host/clap/ClapEffect.h"
#include "host/clap/ClapInterface.h"

using namespace varitap::clap;
using varitap::ClapEffect;

// Every instance of the module gets the editor, installed when the module loads.
[[maybe_unused]] static const bool kEditorInstalled = (varitap::setEditorFactory(&varitap::createDelayEditor), true);

namespace {

std::atomic<int> initCount{0};

bool entryInit(const char* path) {
    (void)path;
    initCount.fetch_add(1);
    return true;
}

void entryDeinit() {
    int count = initCount.load();
    while (count > 0 && !initCount.compare_exchange_weak(count, count - 1)) {
    }
}

uint32_t pluginCount(const clap_plugin_factory*) { return 1; }

const clap_plugin_descriptor* pluginDescriptor(const clap_plugin_factory*, uint32_t index) {
    return index == 0 ? ClapEffect::descriptor() : nullptr;
}

const clap_plugin* createPlugin(const clap_plugin_factory*, const clap_host* host, const char* id) {
    if (initCount.load() <= 0 || !id || std::strcmp(id, ClapEffect::kId) != 0) return nullptr;
    try {
        return ClapEffect::create(host);
    } catch (...) {
        return nullptr;
    }
}

const clap_plugin_factory kFactory = {pluginCount, pluginDescriptor, createPlugin};

const void* entryFactory(const char* id) {
    return id && std::strcmp(id, kPluginFactoryId) == 0 ? &kFactory : nullptr;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const clap_plugin_entry clap_entry = {
    kVersion, entryInit, entryDeinit, entryFactory,
};
