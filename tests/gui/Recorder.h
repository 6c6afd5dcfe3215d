// A listener that logs what controls and the frame report: "v<tag>;" for a
// value change, "b<index>;" and "e<index>;" for the edit notifications.
#pragma once

#include <string>

#include "gui/Control.h"
#include "gui/Frame.h"

namespace varitap::gui::test {

class Recorder : public ControlListener, public EditListener {
public:
    void valueChanged(DrawContext*, Control* c) override {
        ++changes;
        last = c->value();
        log += "v" + std::to_string(c->tag()) + ";";
    }
    void beginEdit(int32_t i) override { log += "b" + std::to_string(i) + ";"; }
    void endEdit(int32_t i) override { log += "e" + std::to_string(i) + ";"; }
    int changes = 0;
    float last = -1;
    std::string log;
};

}  // namespace varitap::gui::test
