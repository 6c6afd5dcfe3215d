// A view that shows a bitmap at its top-left corner, at the bitmap's size.
#pragma once

#include "gui/View.h"

namespace varitap::gui {

class Bitmap;

class BitmapView : public View {
public:
    // Takes a reference on bitmap (may be null: draws nothing).
    BitmapView(const Rect& size, Bitmap* bitmap);
    ~BitmapView() override;

    Bitmap* bitmap() const { return bitmap_; }
    void setBitmap(Bitmap* bitmap);
    void draw(DrawContext& dc) override;

private:
    Bitmap* bitmap_;
};

}  // namespace varitap::gui
