// Writes the LV2 bundle's description from the parameter table:
//   varitap-lv2-turtle BUNDLE_DIR BINARY
// makes BUNDLE_DIR/manifest.ttl (the plug-in and its UI, their binary at
// BINARY relative to the bundle, their description) and BUNDLE_DIR/Varitap.ttl
// (ports, features, options, state, the X11 UI). Exit status 1 when a file cannot be written.
#include <charconv>
#include <cstdio>
#include <fstream>
#include <string>

#include "engine/ParameterLayout.h"
#include "host/ParameterInfo.h"
#include "host/lv2/Lv2Effect.h"

namespace {

using varitap::Lv2Effect;
using varitap::ParameterInfo;

// The shortest text that reads back as the same float, always a Turtle
// decimal or double (never an integer literal).
std::string number(float value) {
    char text[32];
    auto result = std::to_chars(text, text + sizeof text, value);
    std::string s(text, result.ptr);
    if (s.find_first_of(".e") == std::string::npos) s += ".0";
    return s;
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

void writeParameterPort(std::ostream& out, int32_t index) {
    const ParameterInfo info = varitap::parameterInfo(index);
    out << "    [\n"
        << "        a lv2:InputPort , lv2:ControlPort ;\n"
        << "        lv2:index " << index << " ;\n"
        << "        lv2:symbol " << quoted(info.symbol) << " ;\n"
        << "        lv2:name " << quoted(info.name) << " ;\n"
        << "        lv2:default " << number(info.defaultValue) << " ;\n"
        << "        lv2:minimum " << number(info.minimum) << " ;\n"
        << "        lv2:maximum " << number(info.maximum);
    switch (info.kind) {
        case ParameterInfo::kToggle:
            out << " ;\n        lv2:portProperty lv2:toggled";
            break;
        case ParameterInfo::kInteger:
            out << " ;\n        lv2:portProperty lv2:integer";
            break;
        case ParameterInfo::kChoice:
            out << " ;\n        lv2:portProperty lv2:enumeration ;\n        lv2:scalePoint ";
            for (size_t i = 0; i < info.choices.size(); ++i) {
                out << (i ? " , " : "") << "[ rdfs:label " << quoted(info.choices[i].label)
                    << " ; rdf:value " << number(info.choices[i].value) << " ]";
            }
            break;
        case ParameterInfo::kContinuous:
            break;
    }
    out << "\n    ] ,\n";
}

void writeAudioPort(std::ostream& out, uint32_t index, bool input, int channel) {
    out << "    [\n"
        << "        a lv2:AudioPort , " << (input ? "lv2:InputPort" : "lv2:OutputPort") << " ;\n"
        << "        lv2:index " << index << " ;\n"
        << "        lv2:symbol \"" << (input ? "in_" : "out_") << channel << "\" ;\n"
        << "        lv2:name \"" << (input ? "In " : "Out ") << channel << "\"\n"
        << "    ] ,\n";
}

const char* const kPrefixes =
    "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .\n"
    "@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .\n"
    "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
    "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
    "@prefix opts: <http://lv2plug.in/ns/ext/options#> .\n"
    "@prefix param: <http://lv2plug.in/ns/ext/parameters#> .\n"
    "@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .\n"
    "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
    "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
    "@prefix time: <http://lv2plug.in/ns/ext/time#> .\n"
    "@prefix ui: <http://lv2plug.in/ns/extensions/ui#> .\n"
    "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n\n";

bool writePlugin(const std::string& path) {
    std::ofstream out(path);
    out << kPrefixes << "<" << Lv2Effect::kUri << ">\n"
        << "    a lv2:Plugin , lv2:DelayPlugin ;\n"
        << "    doap:name \"Varitap\" ;\n"
        << "    lv2:minorVersion " << VARITAP_VERSION_MINOR << " ;\n"
        << "    lv2:microVersion " << VARITAP_VERSION_PATCH << " ;\n"
        << "    lv2:optionalFeature lv2:hardRTCapable , urid:map , opts:options ;\n"
        << "    opts:supportedOption bufsz:maxBlockLength , param:sampleRate ;\n"
        << "    lv2:extensionData state:interface ;\n"
        << "    ui:ui <" << Lv2Effect::kUri << "#ui> ;\n"
        << "    lv2:port\n";
    for (int32_t i = 0; i < varitap::kParameterCount; ++i) writeParameterPort(out, i);
    for (int c = 0; c < Lv2Effect::kChannels; ++c) writeAudioPort(out, Lv2Effect::kInputPort + c, true, c + 1);
    for (int c = 0; c < Lv2Effect::kChannels; ++c) writeAudioPort(out, Lv2Effect::kOutputPort + c, false, c + 1);
    out << "    [\n"
        << "        a lv2:InputPort , atom:AtomPort ;\n"
        << "        atom:bufferType atom:Sequence ;\n"
        << "        atom:supports time:Position ;\n"
        << "        lv2:designation lv2:control ;\n"
        << "        lv2:portProperty lv2:connectionOptional ;\n"
        << "        lv2:index " << Lv2Effect::kControlPort << " ;\n"
        << "        lv2:symbol \"control\" ;\n"
        << "        lv2:name \"Transport\"\n"
        << "    ] .\n\n";
    // The editor: the instance's own, reached through instance-access.
    out << "<" << Lv2Effect::kUri << "#ui>\n"
        << "    a ui:X11UI ;\n"
        << "    lv2:requiredFeature ui:idleInterface , ui:parent , <http://lv2plug.in/ns/ext/instance-access> ;\n"
        << "    lv2:optionalFeature ui:resize , ui:touch , opts:options , urid:map ;\n"
        << "    opts:supportedOption ui:scaleFactor ;\n"
        << "    lv2:extensionData ui:idleInterface .\n";
    return static_cast<bool>(out);
}

bool writeManifest(const std::string& path, const std::string& binary) {
    std::ofstream out(path);
    out << "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
        << "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
        << "@prefix ui: <http://lv2plug.in/ns/extensions/ui#> .\n\n"
        << "<" << Lv2Effect::kUri << ">\n"
        << "    a lv2:Plugin ;\n"
        << "    lv2:binary <" << binary << "> ;\n"
        << "    rdfs:seeAlso <Varitap.ttl> .\n\n"
        << "<" << Lv2Effect::kUri << "#ui>\n"
        << "    a ui:X11UI ;\n"
        << "    lv2:binary <" << binary << "> ;\n"
        << "    rdfs:seeAlso <Varitap.ttl> .\n";
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: varitap-lv2-turtle BUNDLE_DIR BINARY\n");
        return 2;
    }
    const std::string bundle = argv[1];
    bool ok = writePlugin(bundle + "/Varitap.ttl");
    ok = writeManifest(bundle + "/manifest.ttl", argv[2]) && ok;
    return ok ? 0 : 1;
}
