// The parameter table as a plug-in format describes it to hosts: for each of
// the 241 parameters a symbol, the name (untranslated), its range, the "Init"
// default and its kind, with the choices of the parameters that are one of a
// few values. Values are the ones setParameter takes: 0..1, except a
// modulator's "Index", which carries a parameter number 0..240. Formats that
// write description files (the LV2 Turtle) and the ones that describe their
// parameters at run time take everything from here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace varitap {

struct ParameterChoice {
    float value;        // what the editor writes for this choice
    std::string label;  // untranslated
};

struct ParameterInfo {
    enum Kind { kContinuous, kToggle, kInteger, kChoice };
    Kind kind = kContinuous;
    std::string symbol;  // a C identifier, unique among the parameters
    std::string name;    // as getParameterName writes it without translation
    float minimum = 0.0f;
    float maximum = 1.0f;
    float defaultValue = 0.0f;              // the "Init" program's value
    std::vector<ParameterChoice> choices;   // kChoice only
};

// any thread. The description of parameter index 0..240; an index outside
// the layout gives an empty symbol.
ParameterInfo parameterInfo(int32_t index);

}  // namespace varitap
