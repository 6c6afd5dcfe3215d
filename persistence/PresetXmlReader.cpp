#include "persistence/PresetXmlReader.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <locale.h>

namespace varitap {

namespace {

// The C locale, made once and kept for the life of the process, so that
// numbers read the same under a host locale with a decimal comma.
locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

// As "%f": leading blanks, a sign, digits, point, exponent, inf and nan; text
// that does not scan leaves 0.
float scanFloat(const char* text) {
    const locale_t locale = cLocale();
    if (!locale) return 0.0f;
    char* end = nullptr;
    const float number = strtof_l(text, &end, locale);
    return end == text ? 0.0f : number;
}

// As "%ld", stored in 32 bits.
int32_t scanLong(const char* text) {
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    return end == text ? 0 : static_cast<int32_t>(number);
}

}  // namespace

PresetXmlReader::PresetXmlReader(ByteStream* stream) : XmlReaderBase(stream) {}

PresetXmlReader::~PresetXmlReader() = default;

void PresetXmlReader::startElement(const char* name, PropertyDictionary* attributes) {
    if (skipping_ > 0) {
        open_.push_back(Opened::Nothing);
        return;
    }
    if (!insideRoot_) {
        if (std::strcmp(name, "Presets") == 0) {
            insideRoot_ = true;
            auto* list = new PropertyList;
            stack_.append(list);
            current_ = list;
            list->release();
            open_.push_back(Opened::Root);
        } else {
            open_.push_back(Opened::Nothing);
        }
        return;
    }

    const PropertyValue* key = attributes ? attributes->findProperty("name") : nullptr;
    if (!attributes || (!key && std::strcmp(name, "array") == 0)) {
        ++skipping_;
        open_.push_back(Opened::Skipped);
        return;
    }
    if (!key || !current_) {
        open_.push_back(Opened::Nothing);
        return;
    }
    const PropertyValue* text = attributes->findProperty("value");
    const char* keyText = key->getString().c_str();

    PropertyValue* value = nullptr;
    if (std::strcmp(name, "float") == 0 && text) {
        value = PropertyValue::makeFloat(keyText, scanFloat(text->getString().c_str()));
    } else if (std::strcmp(name, "long") == 0 && text) {
        value = PropertyValue::makeLong(keyText, scanLong(text->getString().c_str()));
    } else if (std::strcmp(name, "string") == 0 && text) {
        value = PropertyValue::makeString(keyText, text->getString());
    } else if (std::strcmp(name, "array") == 0) {
        auto* list = new PropertyList;
        stack_.append(list);
        current_ = list;
        PropertyValue* temp = PropertyValue::makeString(kTempKeyName, key->getString());
        list->append(temp);
        temp->release();
        list->release();  // the stack keeps it until the end tag
        open_.push_back(Opened::Array);
        return;
    }
    if (value) {
        current_->append(value);
        value->release();
    }
    open_.push_back(Opened::Nothing);
}

void PresetXmlReader::endElement(const char* name) {
    // libxml2 only reports end tags that match an open start tag.
    if (open_.empty()) return;
    const Opened opened = open_.back();
    open_.pop_back();
    if (opened == Opened::Skipped) {
        --skipping_;
        return;
    }

    if (opened == Opened::Array && current_ && std::strcmp(name, "array") == 0) {
        PropertyList* list = current_;
        RefPtr<PropertyValue> first(list->at(0));
        if (first) list->remove(first.get());
        PropertyValue* array =
            PropertyValue::makeArray(first ? first->getString().c_str() : "", *list);
        stack_.remove(list);  // destroys list; its elements live on in array
        current_ = stack_.count() ? static_cast<PropertyList*>(stack_.getAt(stack_.count() - 1))
                                  : nullptr;
        if (current_) current_->append(array);
        array->release();
    } else if (opened == Opened::Root && std::strcmp(name, "Presets") == 0) {
        result_ = current_;
        insideRoot_ = false;
    }
}

}  // namespace varitap
