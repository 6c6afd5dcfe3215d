// The editor's context menu: presets and folders, the switch options, the
// background choice, the zoom, the home page and the about box. Built afresh on every
// click from the library's and the options' current state; commands are
// recognised by the chosen entry's text.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "editor/BackgroundBitmap.h"
#include "editor/DelayEditor.h"
#include "editor/EditorDialogs.h"
#include "gui/OptionMenu.h"
#include "host/DelayEffect.h"
#include "persistence/OpenUrl.h"
#include "persistence/Preferences.h"
#include "persistence/PresetLibrary.h"

namespace varitap {

using gui::OptionMenu;
using gui::Point;
using gui::Rect;

namespace {

constexpr const char* kAddPreset = "Add Preset ...";
constexpr const char* kRemoveFolder = "Remove Folder";
constexpr const char* kAddFolder = "Add Folder ...";
constexpr const char* kVisitHomepage = "Visit Homepage ...";
constexpr const char* kAbout = "About ...";
constexpr const char* kDialogTitle = "Varitap";
constexpr const char* kFolderPrompt = "Enter a name for the new Preset Folder :";
constexpr const char* kPresetPrompt = "Enter a name for the new Preset :";

RefPtr<OptionMenu> makeMenu(Point where, int32_t tag, uint32_t style = 0) {
    auto menu = makeRef<OptionMenu>(Rect(where.x, where.y, where.x, where.y), nullptr, tag, style);
    menu->setFont(gui::kNormalFontVerySmall);
    return menu;
}

bool optionIsSet(const char* key) {
    long number = 0;
    if (Preferences* preferences = Preferences::current()) {
        preferences->getNumber(key, &number, 0);
    }
    return number != 0;
}

bool sameText(const char* a, const std::string& b) { return a && b == a; }

// The Options menu's switches, in menu order, each with its check mark from
// the stored option. Picking one stores the opposite of its mark through the
// plug-in, which applies it.
struct SwitchOption {
    const char* text;
    const char* key;
};
constexpr SwitchOption kSwitchOptions[] = {
    {"Resample (experimental)", kOptionDelayTimeResample},
    {"Smooth Delay Time Changes", kOptionSmoothDelayTimeChanges},
    {"Show Delay Time in Samples", kOptionDelayTimeInSamples},
};
constexpr int kSwitchCount = int(sizeof kSwitchOptions / sizeof kSwitchOptions[0]);
static_assert(kSwitchCount == int(sizeof(ContextMenu::optionChecked)), "one check mark per switch");

// The "Remove Preset '%s'" entry. A translation of the format is used only
// when it holds exactly one "%s" and no other conversion, so that a bad
// catalogue cannot make the formatting read what is not there.
std::string removePresetText(const std::string& name) {
    std::string format = localized("Remove Preset '%s'");
    const size_t at = format.find("%s");
    if (at == std::string::npos || format.find('%', at + 2) != std::string::npos ||
        format.find('%') != at) {
        format = "Remove Preset '%s'";
    }
    const size_t cut = format.find("%s");
    std::string text = format.substr(0, cut) + name + format.substr(cut + 2);
    // The entry is formatted into a 256-byte buffer.
    if (text.size() > 255) text.resize(255);
    return text;
}

}  // namespace

ContextMenu DelayEditor::buildContextMenu(Point where) {
    ContextMenu menu;
    PresetLibrary* library = PresetLibrary::current();

    menu.presets = makeMenu(where, 0);
    const uint32_t folderCount = library ? library->folderCount() : 0;
    for (uint32_t f = 0; f < folderCount; ++f) {
        PresetFolder* folder = library->folderAt(f);
        auto folderMenu = makeMenu(where, static_cast<int32_t>(f));
        for (uint32_t p = 0; p < folder->presetCount(); ++p) {
            folderMenu->addEntry(folder->presetAt(p)->getName().c_str());
        }
        if (!(folder->flags() & kFactory)) {
            folderMenu->addEntry("-");
            folderMenu->addEntry(localized(kAddPreset).c_str());
            folderMenu->addEntry("-");
            folderMenu->addEntry(localized(kRemoveFolder).c_str());
        }
        menu.presets->addEntry(folderMenu.get(), folder->getName().c_str());
        menu.folders.push_back(folderMenu);
    }
    menu.presets->addEntry("-");
    menu.presets->addEntry(localized(kAddFolder).c_str());
    if (Preset* current = currentPreset()) {
        menu.removePresetText = removePresetText(current->getName());
        menu.presets->addEntry("-");
        menu.presets->addEntry(menu.removePresetText.c_str());
    }

    menu.background = makeMenu(where, 0, OptionMenu::kCheckStyle);
    BackgroundEntry* inUse = background_ ? background_->entry() : nullptr;
    for (uint32_t b = 0; b < backgrounds_.count(); ++b) {
        auto* entry = static_cast<BackgroundEntry*>(backgrounds_.getAt(b));
        menu.background->addEntry(entry->displayName().c_str());
        if (entry == inUse) menu.background->checkEntryAlone(static_cast<int>(b));
    }

    menu.options = makeMenu(where, 0, OptionMenu::kCheckStyle);
    for (int i = 0; i < kSwitchCount; ++i) {
        menu.optionChecked[i] = optionIsSet(kSwitchOptions[i].key);
        menu.options->addEntry(localized(kSwitchOptions[i].text).c_str());
        menu.options->checkEntry(i, menu.optionChecked[i]);
    }
    menu.options->addEntry(menu.background.get(), localized("Background").c_str());

    // Zoom: the step the editor shows now is checked; a host that sets the
    // scale itself leaves the steps greyed.
    menu.zoom = makeMenu(where, 0, OptionMenu::kCheckStyle);
    for (int z = 0; z < kZoomStepCount; ++z) {
        char text[16];
        std::snprintf(text, sizeof text, hostScale_ > 0.0 ? "-G%ld%%" : "%ld%%",
                      std::lround(kZoomSteps[z] * 100.0));
        menu.zoom->addEntry(text);
        if (kZoomSteps[z] == scale()) menu.zoom->checkEntryAlone(z);
    }
    menu.options->addEntry(menu.zoom.get(), localized("Zoom").c_str());

    menu.top = makeMenu(where, 0);
    menu.top->addEntry(menu.presets.get(), localized("Presets").c_str());
    menu.top->addEntry("-");
    menu.top->addEntry(menu.options.get(), localized("Options").c_str());
    menu.top->addEntry("-");
    menu.top->addEntry(localized(kVisitHomepage).c_str());
    menu.top->addEntry(localized(kAbout).c_str());
    return menu;
}

bool DelayEditor::handleMenuClick(gui::DrawContext* context, Point where) {
    (void)context;
    if (!frame_) return true;
    RefPtr<gui::Frame> frame = frame_;
    ContextMenu menu = buildContextMenu(where);
    frame->addView(menu.top.get());
    int index = -1;
    OptionMenu* chosen = nullptr;
    if (menu.top->popup(frame.get(), where)) chosen = menu.top->lastItemMenu(index);
    const bool result = carryOutChoice(menu, chosen, index);
    frame->removeView(menu.top.get());
    return result;
}

bool DelayEditor::carryOutChoice(ContextMenu& menu, OptionMenu* chosen, int index) {
    if (!chosen || index < 0) return true;
    const char* text = chosen->entry(index);
    if (!text) return true;

    if (chosen == menu.top.get()) {
        if (sameText(text, localized(kAbout))) return false;
        if (sameText(text, localized(kVisitHomepage))) openURL(kHomePageAddress);
        return true;
    }

    PresetLibrary* library = PresetLibrary::current();
    if (chosen == menu.presets.get()) {
        if (sameText(text, localized(kAddFolder))) {
            char name[kNameBufferSize] = {};
            if (runNameDialogOverEditor(kFolderPrompt, name) && name[0] && library) {
                library->addFolder(name);
            }
        } else if (!menu.removePresetText.empty() && sameText(text, menu.removePresetText)) {
            removeCurrentPreset();
        }
        return true;
    }

    if (chosen == menu.options.get()) {
        for (int i = 0; i < kSwitchCount; ++i) {
            if (!sameText(text, localized(kSwitchOptions[i].text))) continue;
            plugin_->setSwitchOption(kSwitchOptions[i].key, !menu.optionChecked[i]);
            // Delay displays change units.
            if (kSwitchOptions[i].key == kOptionDelayTimeInSamples && frame_) {
                auto guard = frame_->lockFrame();
                frame_->setDirtyAll();
                frame_->redraw();
            }
            break;
        }
        return true;
    }

    if (chosen == menu.background.get()) {
        chooseBackground(index);
        return true;
    }

    if (chosen == menu.zoom.get()) {
        chooseZoom(index);
        return true;
    }

    // A folder's menu: its tag is the folder's index in the library now.
    if (!library) return true;
    const int32_t folderIndex = chosen->tag();
    ObjectList snapshot;
    snapshot.assign(library->folders());
    if (folderIndex < 0 || static_cast<uint32_t>(folderIndex) >= snapshot.count()) return true;
    auto* folder = static_cast<PresetFolder*>(snapshot.getAt(static_cast<uint32_t>(folderIndex)));
    if (sameText(text, localized(kRemoveFolder))) {
        // The folder's presets go with it, the current one among them.
        if (plugin_->lastUserPreset && folder->presets().contains(plugin_->lastUserPreset.get())) {
            plugin_->lastUserPreset.reset();
        }
        library->removeFolder(folder);
    } else if (sameText(text, localized(kAddPreset))) {
        addPresetTo(folder);
    } else if (static_cast<uint32_t>(index) < folder->presetCount()) {
        plugin_->applyPreset(folder->presetAt(static_cast<uint32_t>(index)));
    }
    return true;
}

Preset* DelayEditor::currentPreset() const {
    PresetLibrary* library = PresetLibrary::current();
    Preset* current = plugin_->lastUserPreset.get();
    if (!library || !current) return nullptr;
    for (uint32_t f = 0; f < library->folderCount(); ++f) {
        if (library->folderAt(f)->presets().contains(current)) return current;
    }
    return nullptr;
}

void DelayEditor::removeCurrentPreset() {
    PresetLibrary* library = PresetLibrary::current();
    RefPtr<Preset> current = plugin_->lastUserPreset;
    if (!library || !current) return;
    for (uint32_t f = 0; f < library->folderCount(); ++f) {
        PresetFolder* folder = library->folderAt(f);
        if (folder->flags() & kFactory) continue;
        if (!folder->presets().contains(current.get())) continue;
        plugin_->lastUserPreset.reset();
        folder->removePreset(current.get());
        break;
    }
}

void DelayEditor::addPresetTo(PresetFolder* folder) {
    char name[kNameBufferSize] = {};
    if (!runNameDialogOverEditor(kPresetPrompt, name) || !name[0]) return;
    Preset* preset = plugin_->createPresetFromState(name);
    if (!preset) return;
    folder->addPreset(preset);
    preset->release();
}

bool DelayEditor::runNameDialogOverEditor(const char* prompt, char* result) {
    const uintptr_t owner = frame_ ? frame_->windowId() : 0;
    return runNameDialog(kDialogTitle, localized(prompt).c_str(), nullptr, result, owner, scale_);
}

}  // namespace varitap
