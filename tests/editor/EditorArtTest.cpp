// The editor art against the open editor: every bitmap in the bundle is the
// painter's drawing, the wells and fields the art draws lie under the
// editor's own widgets, and where the toolkit draws white text or white knob
// pointers every background stays dark.
#include <algorithm>

#include "EditorTestSupport.h"
#include "editor/BackgroundEntry.h"
#include "gui/Bitmap.h"
#include "gui/BitmapView.h"
#include "resources/art/Art.h"
#include "resources/art/ArtLayout.h"

namespace varitap::test {
namespace {

using gui::Rect;

Rect fromArt(const art::Rect& r) { return Rect(r.left, r.top, r.right, r.bottom); }

// Over the mostly opaque pixels of an area: mean and brightest relative
// luminance (0 black, 1 white) of their straight (not premultiplied) colours.
struct Stats {
    double mean = 0, max = 0;
};

Stats stats(const Image& s, const Rect& r) {
    auto linear = [](double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    Stats result;
    int n = 0;
    for (int y = r.top; y < r.bottom; ++y) {
        for (int x = r.left; x < r.right; ++x) {
            const gui::test::Pixel p = s.at(x, y);
            if (p.a < 128) continue;
            const double red = p.r / double(p.a), green = p.g / double(p.a), blue = p.b / double(p.a);
            const double l = 0.2126 * linear(red) + 0.7152 * linear(green) + 0.0722 * linear(blue);
            result.mean += l;
            result.max = std::max(result.max, l);
            ++n;
        }
    }
    if (n) result.mean /= n;
    return result;
}

// White text and knob pointers need a contrast (1 to 21) of at least 7:1 on
// average and 3:1 at the brightest pixel.
bool readable(const Image& s, const Rect& r) {
    const Stats st = stats(s, r);
    return 1.05 / (st.mean + 0.05) >= 7.0 && 1.05 / (st.max + 0.05) >= 3.0;
}

// Mean absolute difference per channel (premultiplied) between two areas of
// pictures, 0 (same) to 1.
double difference(const Image& s, const Rect& a, const Image& t, const Rect& b) {
    int sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const gui::test::Pixel p = s.at(a.left + x, a.top + y), q = t.at(b.left + x, b.top + y);
            sum += std::abs(p.r - q.r) + std::abs(p.g - q.g) + std::abs(p.b - q.b);
        }
    }
    return a.width() > 0 && a.height() > 0 ? sum / (3.0 * 255 * a.width() * a.height()) : 0;
}

// The first child of a container that is a T.
template <typename T>
T* childOf(const gui::ViewContainer& container) {
    for (int k = 0; k < container.viewCount(); ++k) {
        if (auto* view = dynamic_cast<T*>(container.viewAt(k))) return view;
    }
    return nullptr;
}

// Hides every view but the bitmaps, so that the frame draws the art alone.
void showOnlyArt(gui::ViewContainer& container) {
    for (int k = 0; k < container.viewCount(); ++k) {
        gui::View* view = container.viewAt(k);
        if (auto* inner = dynamic_cast<gui::ViewContainer*>(view)) {
            showOnlyArt(*inner);
        } else if (!dynamic_cast<gui::BitmapView*>(view)) {
            view->setVisible(false);
        }
    }
}

// A widget of the open editor (its rectangle in its strip or panel) and the
// place the art drew for it.
struct Placed {
    const char* name;
    const gui::View* view;
    art::Rect art;
    enum { kPlain, kWhiteText, kKnob } ink;
};

class EditorArtTest : public EditorTest {
protected:
    void SetUp() override {
        EditorTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        ASSERT_TRUE(host.openEditor());
        ASSERT_EQ(editor().scale(), 1.0);
    }
    static std::string bitmapFile(int number) {
        char name[32];
        std::snprintf(name, sizeof name, "/bmp%05d.png", number);
        return VARITAP_BUNDLE_DIR "/Contents/Resources" + std::string(name);
    }
    std::vector<Placed> stripWidgets(int i) {
        DelayEditor& e = editor();
        return {{"title", childOf<StaticTextView>(*e.tapStrip(i)), art::kTitle, Placed::kWhiteText},
                {"input menu", e.inputMenu(i), art::kInputMenu, Placed::kWhiteText},
                {"output menu", e.outputMenu(i), art::kOutputMenu, Placed::kWhiteText},
                {"delay knob", e.delayKnob(i), art::kDelayKnob, Placed::kKnob},
                {"feedback knob", e.feedbackKnob(i), art::kFeedbackKnob, Placed::kKnob},
                {"volume knob", e.volumeKnob(i), art::kVolumeKnob, Placed::kKnob},
                {"sync", e.tapSyncButton(i), art::kTapSync, Placed::kPlain},
                {"delay display", e.delayDisplay(i), art::kDelayDisplay, Placed::kWhiteText},
                {"feedback display", e.feedbackDisplay(i), art::kFeedbackDisplay, Placed::kWhiteText},
                {"volume display", e.volumeDisplay(i), art::kVolumeDisplay, Placed::kWhiteText},
                {"filter menu", e.filterMenu(i), art::kFilterMenu, Placed::kWhiteText},
                {"cutoff slider", e.cutoffSlider(i), art::kCutoffSlider, Placed::kPlain},
                {"resonance slider", e.resonanceSlider(i), art::kResonanceSlider, Placed::kPlain}};
    }
    std::vector<Placed> panelWidgets(int m) {
        DelayEditor& e = editor();
        return {{"power", e.powerButton(m), art::kPower, Placed::kPlain},
                {"type", e.typeSwitch(m), art::kType, Placed::kPlain},
                {"table toggle", e.tableToggle(m), art::kTableToggle, Placed::kPlain},
                {"index menu", e.indexMenu(m), art::kIndexMenu, Placed::kWhiteText},
                {"speed knob", e.speedKnob(m), art::kSpeedKnob, Placed::kKnob},
                {"speed display", e.speedDisplay(m), art::kSpeedDisplay, Placed::kWhiteText},
                {"sync", e.modulatorSyncButton(m), art::kModSync, Placed::kPlain},
                {"min slider", e.minSlider(m), art::kMinSlider, Placed::kPlain},
                {"max slider", e.maxSlider(m), art::kMaxSlider, Placed::kPlain}};
    }
};

TEST_F(EditorArtTest, ArtLinesUpWithTheEditorsWidgetsWhichDoNotCollide) {
    for (int i = 0; i < kTapCount; ++i) {
        SCOPED_TRACE("strip " + std::to_string(i));
        const Rect strip = Rect::fromSize(art::kMenuStrip.right + i * art::kStripPitch, 1,
                                          art::kStripWidth, art::kStripHeight);
        EXPECT_EQ(editor().tapStrip(i)->viewSize(), strip);
        const Rect panel = editor().modulatorPanel(i)->viewSize();
        EXPECT_EQ(panel, Rect::fromSize(strip.left, art::kPanelTop, art::kStripWidth, art::kPanelHeight));
        EXPECT_TRUE(panel.right <= DelayEditor::kWidth && panel.bottom <= DelayEditor::kHeight);
        // Only the tempo note menu over the delay display and the table view
        // over the speed knob and sliders overlap on purpose, and are not listed.
        for (const auto& [widgets, area] :
             {std::pair{stripWidgets(i), Rect(0, 0, art::kStripWidth, art::kStripCardBottom)},
              std::pair{panelWidgets(i), Rect(0, 0, art::kStripWidth, art::kPanelHeight)}}) {
            for (auto a = widgets.begin(); a != widgets.end(); ++a) {
                ASSERT_NE(a->view, nullptr) << a->name;
                const Rect r = a->view->viewSize();
                EXPECT_EQ(r, fromArt(a->art)) << a->name;
                EXPECT_EQ(r.intersect(area), r) << a->name;
                for (auto b = std::next(a); b != widgets.end(); ++b) {
                    EXPECT_TRUE(r.intersect(b->view->viewSize()).isEmpty()) << a->name << " / " << b->name;
                }
            }
        }
        EXPECT_EQ(editor().tableView(i)->viewSize(), fromArt(art::kTableView));
        EXPECT_EQ(editor().tableView(i)->plotRect(),
                  fromArt(art::kTableView).insetBy(art::kTableInset, art::kTableInset));
    }
    const gui::BitmapView* handle = childOf<gui::BitmapView>(*editor().frame());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->viewSize(), Rect::fromSize(0, art::kMenuHandleTop, art::kMenuHandleSize.width,
                                                 art::kMenuHandleSize.height));
    EXPECT_EQ(editor().wetDryKnob()->viewSize(), fromArt(art::kWetDryKnob));
    EXPECT_EQ(editor().bitmap(DelayEditor::kAboutBitmap)->width(), DelayEditor::kWidth);
    EXPECT_EQ(editor().bitmap(DelayEditor::kAboutBitmap)->height(), DelayEditor::kHeight);
    // The slider handle fits the sliders' height and leaves them room to move.
    const gui::Bitmap* sliderHandle = editor().bitmap(DelayEditor::kSliderHandleBitmap);
    EXPECT_LE(sliderHandle->height(), art::kCutoffSlider.height());
    EXPECT_GE(art::kCutoffSlider.width() - sliderHandle->width(), 48) << "handle travel too short";
    EXPECT_EQ(DelayEditor::menuStripRect(), fromArt(art::kMenuStrip));
    const AboutOverlay& about = *editor().aboutOverlay();
    ASSERT_EQ(about.viewCount(), 3);
    const art::Rect aboutTexts[] = {art::kAboutVersion, art::kAboutDate, art::kAboutLink};
    for (int k = 0; k < 3; ++k) EXPECT_EQ(about.viewAt(k)->viewSize(), fromArt(aboutTexts[k])) << k;

    // The knob's pointer sweeps the arc the art prints its scale over.
    const Rect knob = fromArt(art::kDelayKnob);
    for (double v : {0.0, 0.25, 0.5, 1.0}) {
        const double a = (art::kKnobStartDegrees - art::kKnobSweepDegrees * v) * M_PI / 180.0;
        const double length = knob.width() / 2.0 - art::kKnobPointerInset;
        const gui::Point end = gui::Knob::handleEnd(knob, static_cast<float>(v));
        EXPECT_NEAR(end.x, art::kDelayKnob.centerX() + length * std::cos(a), 1.0) << v;
        EXPECT_NEAR(end.y, art::kDelayKnob.centerY() - length * std::sin(a), 1.0) << v;
    }
}

TEST_F(EditorArtTest, BundleBitmapsAreThePaintersDrawingWhichDrawsAtAnyScale) {
    ASSERT_EQ(art::editorBitmaps().size(), static_cast<size_t>(DelayEditor::kBitmapCount));
    for (int slot = 0; slot < DelayEditor::kBitmapCount; ++slot) {
        const int number = DelayEditor::bitmapResource(static_cast<DelayEditor::BitmapSlot>(slot));
        SCOPED_TRACE("bitmap " + std::to_string(number));
        const art::EditorBitmap* art = art::findEditorBitmap(number);
        ASSERT_NE(art, nullptr);
        const Image file = Image::readPng(bitmapFile(number));
        EXPECT_EQ(file.width, art->width);
        EXPECT_EQ(file.height, art->height);
        // At 100 % the editor shows the bundle's PNG: pixel for pixel what the
        // painter draws at scale 1.
        const Image drawn = Image::adopt(art->draw(1.0));
        const std::string copy = home.path() + "/drawn.png";
        ASSERT_TRUE(drawn.writePng(copy));
        EXPECT_TRUE(Image::readPng(copy).words == file.words);
        // At other scales the same picture, drawn for more pixels: the size
        // rounded up, and at 200 % each 2 x 2 block is close to its pixel at 100 %.
        const Image odd = Image::adopt(art->draw(1.75));
        EXPECT_EQ(odd.width, static_cast<int>(std::ceil(1.75 * art->width)));
        EXPECT_EQ(odd.height, static_cast<int>(std::ceil(1.75 * art->height)));
        const Image twice = Image::adopt(art->draw(2.0));
        ASSERT_EQ(twice.width, 2 * art->width);
        ASSERT_EQ(twice.height, 2 * art->height);
        const Rect all(0, 0, art->width, art->height);
        EXPECT_LT(difference(halved(twice), all, drawn, all), 0.03);
    }
}

TEST_F(EditorArtTest, BackgroundsAreFullSizeAndKeepWhiteTextReadable) {
    // Where white text or a knob pointer goes, in the frame's coordinates. The
    // pointer runs from a knob's centre to 3 pixels short of its edge: the
    // square inside that circle.
    std::vector<std::pair<std::string, Rect>> inked;
    auto add = [&](const Placed& p, const gui::View& container, int i) {
        const Rect at = p.view->viewSize().offsetBy(container.viewSize().left, container.viewSize().top);
        if (p.ink == Placed::kWhiteText) inked.emplace_back(p.name + (" " + std::to_string(i)), at);
        if (p.ink == Placed::kKnob) inked.emplace_back(p.name + (" " + std::to_string(i)), at.insetBy(6, 6));
    };
    for (int i = 0; i < kTapCount; ++i) {
        for (const Placed& p : stripWidgets(i)) add(p, *editor().tapStrip(i), i);
        for (const Placed& p : panelWidgets(i)) add(p, *editor().modulatorPanel(i), i);
    }
    inked.emplace_back("wet/dry knob", editor().wetDryKnob()->viewSize().insetBy(6, 6));
    showOnlyArt(*editor().frame());

    const ObjectList& backgrounds = editor().backgrounds();
    ASSERT_GE(backgrounds.count(), 3u);
    bool haveDefault = false;
    for (uint32_t k = 0; k < backgrounds.count(); ++k) {
        const auto* entry = static_cast<BackgroundEntry*>(backgrounds.getAt(k));
        SCOPED_TRACE(entry->fileName());
        haveDefault = haveDefault || std::string(entry->fileName()) == "default.png";
        const Image picture = Image::readPng(entry->path());
        EXPECT_EQ(picture.width, DelayEditor::kWidth);
        EXPECT_EQ(picture.height, DelayEditor::kHeight);
        // Opaque: the frame draws nothing under its background.
        for (uint32_t word : picture.words) ASSERT_EQ(word >> 24, 0xffu);
        ASSERT_TRUE(editor().chooseBackground(static_cast<int>(k)));
        const Image shown = gui::test::renderOffscreen(*editor().frame());
        for (const auto& [what, r] : inked) EXPECT_TRUE(readable(shown, r)) << what;
    }
    EXPECT_TRUE(haveDefault);

    // The about box: the version and date in white, the link in yellow
    // (luminance 0.93), all with black shadows.
    const Image about = Image::readPng(bitmapFile(2));
    for (int k = 0; k < editor().aboutOverlay()->viewCount(); ++k) {
        EXPECT_TRUE(readable(about, editor().aboutOverlay()->viewAt(k)->viewSize())) << k;
    }
}

}  // namespace
}  // namespace varitap::test
