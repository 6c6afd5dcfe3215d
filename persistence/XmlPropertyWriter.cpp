#include "persistence/XmlPropertyWriter.h"

#include <charconv>

namespace varitap {

namespace {

// to_chars ignores the host's locale, so a German host still gets a point;
// the fixed form with a precision prints the same digits as printf.
std::string formatFixed(double value, int decimals) {
    char buffer[400];  // enough for the widest double in fixed notation
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    if (result.ec != std::errc()) return std::string();
    return std::string(buffer, result.ptr);
}

}  // namespace

std::string formatPresetFloat(double value) { return formatFixed(value, 14); }

std::string formatAttributeFloat(double value) { return formatFixed(value, 6); }

std::string formatPresetLong(long value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

XmlPropertyWriter::XmlPropertyWriter(ByteStream* stream) : stream_(stream) {
    if (stream_) stream_->retain();
}

XmlPropertyWriter::~XmlPropertyWriter() {
    if (stream_) stream_->release();
}

bool XmlPropertyWriter::writeText(const std::string& text) {
    if (!stream_) return false;
    bytesRequested_ += text.size();
    return stream_->write(text.data(), text.size(), nullptr);
}

bool XmlPropertyWriter::writeIndent() {
    // One write per TAB, as the format has always been written.
    static const char tab = '\t';
    for (uint32_t i = 0; i < depth_; ++i) {
        if (!stream_) return false;
        bytesRequested_ += 1;
        if (!stream_->write1(&tab)) return false;
    }
    return true;
}

bool XmlPropertyWriter::writeOpenTag(const char* name, const PropertyList* attributes,
                                     bool selfClosing) {
    if (!writeIndent()) return false;
    std::string line = "<";
    line += name ? name : "";
    if (attributes) {
        for (uint32_t i = 0, n = attributes->count(); i < n; ++i) {
            const PropertyValue* attribute = attributes->at(i);
            std::string text;
            switch (attribute->type()) {
                case PropertyType::Float:
                    text = formatAttributeFloat(attribute->getFloat());
                    break;
                case PropertyType::Long:
                    text = formatPresetLong(attribute->getLong());
                    break;
                case PropertyType::String:
                    text = attribute->getString();
                    break;
                default:
                    continue;  // arrays (and unknown kinds) have no attribute form
            }
            line += ' ';
            line += attribute->key();
            line += "=\"";
            line += text;
            line += '"';
        }
    }
    line += selfClosing ? " />\n" : ">\n";
    if (!writeText(line)) return false;
    if (!selfClosing) ++depth_;
    return true;
}

bool XmlPropertyWriter::writeCloseTag(const char* name) {
    if (depth_ > 0) --depth_;
    if (!writeIndent()) return false;
    std::string line = "</";
    line += name ? name : "";
    line += ">\n";
    return writeText(line);
}

bool XmlPropertyWriter::writeProperty(const PropertyValue* value) {
    if (!value) return false;
    if (!writeIndent()) return false;
    std::string line = "<";
    switch (value->type()) {
        case PropertyType::Float: line += "float"; break;
        case PropertyType::Long: line += "long"; break;
        case PropertyType::String: line += "string"; break;
        case PropertyType::Array: line += "array"; break;
        default: return true;  // a kind without a form is not written
    }
    line += " name=\"";
    line += value->key();
    line += '"';

    if (value->type() == PropertyType::Array) {
        line += ">\n";
        if (!writeText(line)) return false;
        ++depth_;
        if (const PropertyList* children = value->getArray()) {
            for (uint32_t i = 0, n = children->count(); i < n; ++i) {
                if (!writeProperty(children->at(i))) return false;
            }
        }
        --depth_;
        if (!writeIndent()) return false;
        return writeText("</array>\n");
    }

    line += " value=\"";
    switch (value->type()) {
        case PropertyType::Float: line += formatPresetFloat(value->getFloat()); break;
        case PropertyType::Long: line += formatPresetLong(value->getLong()); break;
        default: line += value->getString(); break;
    }
    line += "\" />\n";
    return writeText(line);
}

}  // namespace varitap
