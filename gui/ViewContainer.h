// A view holding child views (one reference each) with an optional
// background colour and bitmap; a press goes to the topmost child under it.
#pragma once

#include <vector>

#include "gui/View.h"

namespace varitap::gui {

class Bitmap;

class ViewContainer : public View {
public:
    explicit ViewContainer(const Rect& size);
    ~ViewContainer() override;

    // ui. Adds view on top of the others, taking a reference; false when it
    // is null or already in a container.
    virtual bool addView(View* view);
    // ui. Takes view out and drops the container's reference; false when it
    // is not a child.
    virtual bool removeView(View* view);
    virtual void removeAll();
    bool isChild(const View* view) const;
    int viewCount() const { return static_cast<int>(children_.size()); }
    View* viewAt(int index) const;

    // The background picture drawn at the container's top-left corner at its
    // own size (takes a reference; null removes it).
    void setBackground(Bitmap* bitmap);
    Bitmap* background() const { return background_; }
    void setBackgroundColor(Color c) { backgroundColor_ = c; setDirty(); }
    Color backgroundColor() const { return backgroundColor_; }

    // ui. The topmost visible, mouse-enabled child whose mouse rectangle holds
    // `where` (the container's own coordinates); null when none.
    View* childAt(Point where) const;

    void draw(DrawContext& dc) override;
    // Children's part of drawing, with dc's origin at the container's corner;
    // only those crossing `area` (container coordinates) are drawn.
    virtual void drawChildren(DrawContext& dc, const Rect& area);
    // Background only (colour unless transparent, then the bitmap).
    virtual void drawBackground(DrawContext& dc);
    MouseResult onMouseDown(Point where, uint32_t buttons) override;
    bool onWheel(Point where, float distance, uint32_t buttons) override;
    int onKeyDown(const KeyEvent& key) override;
    bool isContainer() const override { return true; }

    // ui. Marks every view of the subtree (the container too).
    void setDirtyAll();
    // ui. Collects, in frame coordinates, the union of the dirty views'
    // rectangles and clears their marks. offset is the container's origin in
    // frame coordinates.
    Rect collectDirty(Point offset);

private:
    std::vector<View*> children_;  // one reference each
    Bitmap* background_ = nullptr; // one reference
    Color backgroundColor_ = kBlackColor;
};

}  // namespace varitap::gui
