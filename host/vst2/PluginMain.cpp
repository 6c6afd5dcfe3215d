// The plug-in module's entry point. Hosts look for VSTPluginMain (Linux),
// main (older hosts) and main_macho; all three are the same function. The
// linker version script keeps everything else hidden.
#include "editor/DelayEditor.h"
#include "host/vst2/Vst2Effect.h"

using varitap::createDelayEffect;
using vst::AEffect;
using vst::audioMasterCallback;

#define VARITAP_EXPORT __attribute__((visibility("default")))

// Every instance of the module gets the editor, installed when the module loads.
[[maybe_unused]] static const bool kEditorInstalled = (varitap::setEditorFactory(&varitap::createDelayEditor), true);

extern "C" {

VARITAP_EXPORT AEffect* VSTPluginMain(audioMasterCallback audioMaster) {
    return createDelayEffect(audioMaster);
}

VARITAP_EXPORT AEffect* main_macho(audioMasterCallback audioMaster) {
    return createDelayEffect(audioMaster);
}

// C++ cannot declare a function named main that returns a pointer; the
// assembler label gives this one the symbol name "main".
VARITAP_EXPORT AEffect* varitapMainEntry(audioMasterCallback audioMaster) asm("main");
AEffect* varitapMainEntry(audioMasterCallback audioMaster) { return createDelayEffect(audioMaster); }

}  // extern "C"
