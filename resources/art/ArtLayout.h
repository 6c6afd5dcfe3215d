// The editor's geometry as the art is drawn for it: the pixel size of every
// editor bitmap, and the widget rectangles (relative to their strip or panel)
// that the art puts wells, fields and labels around.
//
// The sizes are chosen so that the whole layout fits the 865 x 400 editor:
//   strips at left 32 + i * (kStripWidth - 10), i = 0..9: the last one ends at
//   32 + 9 * 82 + 92 = 862;
//   panels at top 1 + kStripHeight - 4 = 277, kPanelHeight high: they end at 399.
#pragma once

namespace varitap::art {

struct Rect {
    int left, top, right, bottom;
    constexpr int width() const { return right - left; }
    constexpr int height() const { return bottom - top; }
    constexpr double centerX() const { return (left + right) / 2.0; }
    constexpr double centerY() const { return (top + bottom) / 2.0; }
};

struct Size {
    int width, height;
};

inline constexpr int kEditorWidth = 865;
inline constexpr int kEditorHeight = 400;

// Bitmap sizes (whole pictures; stacked states included).
inline constexpr int kStripWidth = 92;       // bitmap 100
inline constexpr int kStripHeight = 280;     // bitmap 100
inline constexpr int kPanelHeight = 122;     // bitmap 200 (as wide as the strip)
inline constexpr Size kAboutSize{kEditorWidth, kEditorHeight};  // bitmap 2
inline constexpr Size kMenuHandleSize{32, 392};  // bitmap 3, placed at (0, 5)
inline constexpr Size kSyncSize{30, 28};         // bitmap 101, 2 states of 30 x 14
inline constexpr Size kSliderHandleSize{7, 10};  // bitmap 102
inline constexpr Size kPowerSize{13, 26};        // bitmap 201, 2 states of 13 x 13
inline constexpr Size kTypeSize{22, 60};         // bitmap 202, 4 states of 22 x 15
inline constexpr Size kTableViewSize{72, 72};    // bitmap 300
inline constexpr Size kTableToggleSize{8, 24};   // bitmap 301, 2 states of 8 x 12

inline constexpr int kStripPitch = kStripWidth - 10;
inline constexpr int kPanelTop = 1 + kStripHeight - 4;
inline constexpr int kMenuHandleTop = 5;
inline constexpr int kSliderTravel = 63;

// The drawn card inside each strip and panel: strips overlap their
// neighbours by 10 pixels, so the card leaves 4 pixels on the left and 8 on
// the right, which gives a 2-pixel gap between neighbouring cards through
// which the background shows. The panel card starts 2 pixels below the
// strip card for the same gap.
inline constexpr int kCardLeft = 4;
inline constexpr int kCardRight = kStripWidth - 8;
inline constexpr int kStripCardBottom = kStripHeight - 4;
inline constexpr int kPanelCardTop = 2;
inline constexpr int kPanelCardBottom = kPanelHeight - 2;

// Tap strip widgets (left, top, right, bottom, relative to the strip).
inline constexpr Rect kTitle{4, 2, kStripWidth - 12, 14};
inline constexpr Rect kInputMenu{45, 22, 75, 33};
inline constexpr Rect kOutputMenu{45, 260, 75, 271};
inline constexpr Rect kDelayKnob{13, 62, 38, 87};
inline constexpr Rect kFeedbackKnob{49, 98, 74, 123};
inline constexpr Rect kVolumeKnob{13, 134, 38, 159};
inline constexpr Rect kTapSync{43, 43, 43 + kSyncSize.width, 43 + kSyncSize.height / 2};
inline constexpr Rect kDelayDisplay{48, 74, 72, 86};
inline constexpr Rect kFeedbackDisplay{12, 110, 36, 122};
inline constexpr Rect kVolumeDisplay{48, 146, 72, 158};
inline constexpr Rect kFilterMenu{13, 182, 68, 193};
inline constexpr Rect kCutoffSlider{11, 211, 74, 221};
inline constexpr Rect kResonanceSlider{11, 235, 74, 245};

// Modulator panel widgets (relative to the panel).
inline constexpr Rect kPower{13, 13, 13 + kPowerSize.width, 13 + kPowerSize.height / 2};
inline constexpr Rect kType{11, 29, 11 + kTypeSize.width, 29 + kTypeSize.height / 4};
inline constexpr Rect kTableToggle{33, 32, 33 + kTableToggleSize.width,
                                   32 + kTableToggleSize.height / 2};
inline constexpr Rect kIndexMenu{28, 12, 70, 23};
inline constexpr Rect kSpeedKnob{13, 46, 38, 71};
inline constexpr Rect kSpeedDisplay{48, 58, 72, 70};
inline constexpr Rect kModSync{41, 29, 41 + kSyncSize.width, 29 + kSyncSize.height / 2};
inline constexpr Rect kMinSlider{11, 84, 74, 94};
inline constexpr Rect kMaxSlider{11, 104, 74, 114};
inline constexpr Rect kTableView{8, 44, 8 + kTableViewSize.width, 44 + kTableViewSize.height};
inline constexpr int kTableInset = 6;  // the table view's plot area inset
inline constexpr int kTableColumns = 8;

// Editor-level widgets.
inline constexpr Rect kMenuStrip{0, 0, 32, 352};
inline constexpr Rect kWetDryKnob{4, 357, 29, 382};

// Texts the about overlay draws over bitmap 2.
inline constexpr Rect kAboutVersion{540, 110, 660, 130};
inline constexpr Rect kAboutDate{540, 130, 660, 150};
inline constexpr Rect kAboutLink{337, 155, 528, 170};

// The toolkit keeps a slider's handle inside the slider: its left edge moves
// over the travel, shortened to the slider's width less the handle's.
inline constexpr int sliderTravel(const Rect& slider) {
    return kSliderTravel < slider.width() - kSliderHandleSize.width
               ? kSliderTravel
               : slider.width() - kSliderHandleSize.width;
}

// The toolkit's knob pointer: a one-pixel line from the centre that stops
// this many pixels short of the knob's rectangle.
inline constexpr int kKnobPointerInset = 3;

// A knob's pointer sweeps 270 degrees, from 7:30 to 4:30 o'clock, the way the
// toolkit's line knob turns; the art prints its scale over the same arc.
inline constexpr double kKnobStartDegrees = 225.0;  // counter-clockwise from 3 o'clock
inline constexpr double kKnobSweepDegrees = 270.0;

}  // namespace varitap::art
