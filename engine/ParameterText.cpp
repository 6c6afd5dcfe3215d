#include "engine/ParameterText.h"

#include "persistence/Localize.h"

namespace varitap {

void copyText(char* text, const char* source, int maxChars) {
    if (!text) return;
    int n = 0;
    if (source) {
        for (; n < maxChars && source[n] != '\0'; ++n) text[n] = source[n];
    }
    text[n] = '\0';
}

void copyLocalized(char* text, const char* word, int maxChars) {
    copyText(text, localize(word), maxChars);
}

float unitValue(float value) {
    if (!(value > 0.0f)) return 0.0f;  // NaN and negatives
    return value < 1.0f ? value : 1.0f;
}

}  // namespace varitap
