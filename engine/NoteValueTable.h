// The 25 note values a synchronised tap or modulator can take, in the
// table's own order (not sorted by length: a triplet precedes its plain value).
#pragma once

namespace varitap {

struct NoteValue {
    const char* name;
    float beats;  // length in quarter notes
};

int noteValueCount();
// "Invalid" for an index outside 0..24 (negative indices included).
const char* noteValueName(int index);
// 1.0 for an index outside 0..24.
float noteValueBeats(int index);

}  // namespace varitap
