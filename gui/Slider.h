// A horizontal slider: a handle bitmap moved over the slider's width.
#pragma once

#include "gui/Control.h"
#include "gui/Interaction.h"

namespace varitap::gui {

class Bitmap;

class HorizontalSlider : public Control {
public:
    // The handle's left edge moves handleTravel pixels from the slider's
    // left edge (shortened if the handle would leave the slider).
    HorizontalSlider(const Rect& size, ControlListener* listener, int32_t tag, Bitmap* handle,
                     int handleTravel, bool minimumAtLeft = true);
    ~HorizontalSlider() override;

    // Optional picture under the handle (takes a reference).
    void setBackground(Bitmap* bitmap);
    void setWheelStep(float step) { wheelStep_ = step; }
    SliderGeometry geometry() const;

    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;
    void onMouseMoved(Point where, uint32_t buttons) override;
    void onMouseUp(Point where, uint32_t buttons) override;
    bool onWheel(Point where, float distance, uint32_t buttons) override;

private:
    Bitmap* handle_;              // one reference, may be null
    Bitmap* background_ = nullptr;  // one reference, may be null
    int travel_;
    bool minimumAtLeft_;
    bool dragging_ = false;
    float wheelStep_ = 0.01f;
};

}  // namespace varitap::gui
