#include "gui/BitmapView.h"

#include <algorithm>

#include "gui/Bitmap.h"
#include "gui/DrawContext.h"

namespace varitap::gui {

BitmapView::BitmapView(const Rect& size, Bitmap* bitmap) : View(size), bitmap_(bitmap) {
    if (bitmap_) bitmap_->retain();
}

BitmapView::~BitmapView() {
    if (bitmap_) bitmap_->release();
}

void BitmapView::setBitmap(Bitmap* bitmap) {
    auto lock = lockFrame();
    if (bitmap) bitmap->retain();
    if (bitmap_) bitmap_->release();
    bitmap_ = bitmap;
    setDirty();
}

void BitmapView::draw(DrawContext& dc) {
    if (!bitmap_) return;
    const Rect& r = viewSize();
    dc.drawBitmap(*bitmap_, Rect::fromSize(r.left, r.top, std::min(r.width(), bitmap_->width()),
                                           std::min(r.height(), bitmap_->height())));
}

}  // namespace varitap::gui
