// Varitap's editor as an LV2 X11 UI (ui:X11UI): the instance's own editor,
// reached through instance-access, opened inside the host's ui:parent window
// and driven by ui:idleInterface. Controls the user moves reach the host's
// ports through the UI's write function (Lv2Effect::automate), gestures
// through ui:touch when the host offers it.
#pragma once

#include <lv2/ui/ui.h>

namespace varitap {

// The UI descriptor the module's lv2ui_descriptor hands out.
const LV2UI_Descriptor* lv2UiDescriptor();

}  // namespace varitap
