// Counts every heap allocation of the process (operator new and, outside
// sanitizer builds, the malloc family) while the engine tests run a scenario
// in steady state.

// This file is the allocator: its operator delete frees what its operator new
// took from malloc.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

#include <atomic>
#include <cstdlib>
#include <new>

#include <lv2/atom/forge.h>
#include <lv2/time/time.h>

#include <memory>

#include "EngineFixture.h"
#include "host/lv2/Lv2Effect.h"

namespace {
std::atomic<bool> gCounting{false};
std::atomic<long> gAllocations{0};
inline void noteAllocation() {
    if (gCounting.load(std::memory_order_relaxed)) gAllocations.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

// Under AddressSanitizer the malloc family is the sanitizer's own: only
// operator new is counted there.
#if defined(__SANITIZE_ADDRESS__)
#define VARITAP_COUNT_MALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VARITAP_COUNT_MALLOC 0
#endif
#endif
#ifndef VARITAP_COUNT_MALLOC
#define VARITAP_COUNT_MALLOC 1
#endif

#if VARITAP_COUNT_MALLOC
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void* malloc(size_t size) { return noteAllocation(), __libc_malloc(size); }
void* calloc(size_t n, size_t size) { return noteAllocation(), __libc_calloc(n, size); }
void* realloc(void* p, size_t size) { return noteAllocation(), __libc_realloc(p, size); }
void* aligned_alloc(size_t alignment, size_t size) { return noteAllocation(), __libc_memalign(alignment, size); }
void* memalign(size_t alignment, size_t size) { return noteAllocation(), __libc_memalign(alignment, size); }
int posix_memalign(void** out, size_t alignment, size_t size) {
    void* p = (noteAllocation(), __libc_memalign(alignment, size));
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}
}
#endif

void* operator new(size_t size) {
    noteAllocation();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return noteAllocation(), std::malloc(size ? size : 1); }
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace varitap {
namespace test {

long allocationsIn(const std::function<void(int)>& block, int blocks) {
    for (int i = 0; i < 20; ++i) block(i);
    gAllocations = 0;
    gCounting = true;
    for (int i = 20; i < 20 + blocks; ++i) block(i);
    gCounting = false;
    return gAllocations.load();
}

}  // namespace test
namespace {

using namespace test;

// The counter sees operator new (which takes from malloc) and, where
// counted, malloc: each block makes one of each (the engine's steady state:
// DelayEngineVectorTest.ScalarVectorAndInPlaceBlocksAreEqualAndAllocateNothing).
TEST(AllocationTest, TheCounterSeesEveryAllocation) {
    const long counted = allocationsIn([](int) {
        int* volatile number = new int(3);
        delete number;
        void* volatile block = std::malloc(16);
        std::free(block);
    });
    EXPECT_EQ(counted, VARITAP_COUNT_MALLOC ? 3000 : 1000);
}

// The LV2 plug-in's run, which it declares hard real-time capable: ports the
// host moves, a time:Position now and then, the busy patch's modulators.
TEST(AllocationTest, Lv2RunAllocatesNothing) {
    std::vector<std::string> uris;
    LV2_URID_Map map{&uris, [](LV2_URID_Map_Handle handle, const char* uri) {
                         auto& list = *static_cast<std::vector<std::string>*>(handle);
                         if (std::find(list.begin(), list.end(), uri) == list.end()) list.push_back(uri);
                         return static_cast<LV2_URID>(std::find(list.begin(), list.end(), uri) - list.begin() + 1);
                     }};
    const LV2_Feature mapFeature{LV2_URID__map, &map};
    const LV2_Feature* features[] = {&mapFeature, nullptr};
    std::unique_ptr<Lv2Effect> effect(Lv2Effect::create(44100.0, features));
    ASSERT_NE(effect, nullptr);
    busyPatch(effect->core().engine());
    float control[kParameterCount];
    for (int32_t i = 0; i < kParameterCount; ++i) {
        control[i] = effect->core().getParameter(i);
        effect->connectPort(static_cast<uint32_t>(i), &control[i]);
    }
    std::vector<float> audio[4] = {noise(512, 1), noise(512, 2), std::vector<float>(512), std::vector<float>(512)};
    for (uint32_t p = 0; p < 4; ++p) effect->connectPort(Lv2Effect::kInputPort + p, audio[p].data());

    // A sequence with one time:Position (playing at 120 BPM), and an empty one.
    alignas(8) uint8_t position[256];
    LV2_Atom_Forge forge;
    lv2_atom_forge_init(&forge, &map);
    lv2_atom_forge_set_buffer(&forge, position, sizeof position);
    LV2_Atom_Forge_Frame sequence, object;
    lv2_atom_forge_sequence_head(&forge, &sequence, 0);
    lv2_atom_forge_frame_time(&forge, 0);
    lv2_atom_forge_object(&forge, &object, 0, map.map(map.handle, LV2_TIME__Position));
    lv2_atom_forge_key(&forge, map.map(map.handle, LV2_TIME__speed));
    lv2_atom_forge_float(&forge, 1.0f);
    lv2_atom_forge_key(&forge, map.map(map.handle, LV2_TIME__beatsPerMinute));
    lv2_atom_forge_float(&forge, 120.0f);
    lv2_atom_forge_pop(&forge, &object);
    lv2_atom_forge_pop(&forge, &sequence);
    LV2_Atom_Sequence empty{{sizeof(LV2_Atom_Sequence_Body), forge.Sequence}, {0, 0}};

    effect->activate();
    EXPECT_EQ(allocationsIn([&](int i) {
                  effect->connectPort(Lv2Effect::kControlPort, i % 100 == 0 ? static_cast<void*>(position) : &empty);
                  control[tapParameterIndex(i % kTapCount, kTapVolume)] = static_cast<float>(i % 7) / 7.0f;
                  effect->run(512);
              }),
              0);
}

}  // namespace
}  // namespace varitap
