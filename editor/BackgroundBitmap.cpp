// The editor's backgrounds: gathering the list, choosing one, and
// remembering the choice when the editor object goes.
#include "editor/BackgroundBitmap.h"

#include <string>

#include "editor/DelayEditor.h"
#include "gui/Frame.h"
#include "persistence/Preferences.h"

namespace varitap {

namespace {

// The bundle whose Backgrounds folder is read: the one the editor bitmaps
// come from (the plug-in's own bundle, or the folder a test or the demo
// set), so that the pictures and the bitmaps always match.
std::string backgroundBundle() {
    static const std::string kSuffix = "/Contents/Resources";
    const std::string resources = gui::Bitmap::resourceDirectory();
    if (resources.size() >= kSuffix.size() &&
        resources.compare(resources.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0) {
        return resources.substr(0, resources.size() - kSuffix.size());
    }
    return resources;
}

}  // namespace

BackgroundBitmap::BackgroundBitmap(BackgroundEntry* entry) : entry_(entry) {
    if (entry_ && entry_->path()[0]) loadFile(entry_->path());
}

void DelayEditor::loadBackgrounds() {
    std::string wanted = kDefaultBackgroundName;
    if (Preferences* preferences = Preferences::current()) {
        wanted = wantedBackgroundName(*preferences);
    }
    RefPtr<BackgroundEntry> chosen = gatherBackgrounds(backgroundBundle(), wanted.c_str(),
                                                       backgrounds_);
    background_ = chosen ? makeRef<BackgroundBitmap>(chosen.get()) : RefPtr<BackgroundBitmap>();
    firstBackground_ = chosen ? chosen->fileName() : std::string();
}

bool DelayEditor::chooseBackground(int index) {
    if (index < 0 || static_cast<uint32_t>(index) >= backgrounds_.count()) return false;
    auto* entry = static_cast<BackgroundEntry*>(backgrounds_.getAt(static_cast<uint32_t>(index)));
    if (!entry) return false;
    if (frame_) frame_->setBackground(nullptr);
    background_ = makeRef<BackgroundBitmap>(entry);
    applyBackground();
    if (frame_) frame_->redraw();
    return true;
}

void DelayEditor::applyBackground() {
    if (!frame_) return;
    frame_->setBackground(background_ ? static_cast<gui::Bitmap*>(background_.get()) : nullptr);
}

}  // namespace varitap
