#include "engine/NoteValueTable.h"

namespace varitap {

namespace {

// Thirds are the nearest single-precision values.
constexpr NoteValue kNoteValues[] = {
    {"1/256", 0.015625f}, {"1/128", 0.03125f}, {"1/64", 0.0625f},   {"1/32T", 1.0f / 12.0f},
    {"1/32", 0.125f},     {"1/32D", 0.1875f},  {"1/16T", 1.0f / 6.0f}, {"1/16", 0.25f},
    {"1/16D", 0.375f},    {"1/8T", 1.0f / 3.0f}, {"1/8", 0.5f},      {"1/8D", 0.75f},
    {"1/4T", 2.0f / 3.0f}, {"1/4", 1.0f},      {"1/4D", 1.5f},      {"1/2T", 4.0f / 3.0f},
    {"1/2", 2.0f},        {"1/2D", 3.0f},      {"1T", 8.0f / 3.0f}, {"1", 4.0f},
    {"1D", 6.0f},         {"2T", 16.0f / 3.0f}, {"2", 8.0f},        {"2D", 12.0f},
    {"4", 16.0f},
};
constexpr unsigned kCount = sizeof(kNoteValues) / sizeof(kNoteValues[0]);
static_assert(kCount == 25);

}  // namespace

int noteValueCount() { return static_cast<int>(kCount); }

const char* noteValueName(int index) {
    return static_cast<unsigned>(index) < kCount ? kNoteValues[index].name : "Invalid";
}

float noteValueBeats(int index) {
    return static_cast<unsigned>(index) < kCount ? kNoteValues[index].beats : 1.0f;
}

}  // namespace varitap
