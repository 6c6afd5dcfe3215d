// A background picture made from a BackgroundEntry: the decoded PNG at its
// own pixel size, and a reference to the entry it came from so that the
// Background menu can tell which entry is in use.
//
// Backgrounds are pictures the user may replace with photos: they have no
// vector source to draw again at the editor's scale, so at scales above 100 %
// the drawing context resamples them smoothly (gui::DrawContext::drawBitmap).
// The editor bitmaps, which do have one, are drawn anew instead.
#pragma once

#include "editor/BackgroundEntry.h"
#include "gui/Bitmap.h"

namespace varitap {

class BackgroundBitmap : public gui::Bitmap {
public:
    // ui thread. Decodes the entry's file; a file that cannot be decoded
    // leaves an empty bitmap (width and height 0, draws nothing).
    explicit BackgroundBitmap(BackgroundEntry* entry);
    BackgroundEntry* entry() const { return entry_.get(); }

private:
    RefPtr<BackgroundEntry> entry_;
};

}  // namespace varitap
