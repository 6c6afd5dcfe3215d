// Writing parameter names, labels and displays into a host's text buffer.
#pragma once

namespace varitap {

// Copies at most maxChars characters of source and a terminator.
void copyText(char* text, const char* source, int maxChars);
// The word through the localised string table, copied as copyText. ui thread.
void copyLocalized(char* text, const char* word, int maxChars);

// A parameter value as the engine stores it: clamped to 0..1, NaN as 0.
float unitValue(float value);

}  // namespace varitap
