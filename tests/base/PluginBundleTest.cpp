// Where the plug-in finds itself and what it writes for people: the bundle
// lookup and localize, seen from inside a temporary bundle laid out like
// Varitap.vst (a copy of the probe library, a small .so linked with the base
// layer, and a string table), and the number texts, under the C and a German
// locale.
#include "persistence/PluginBundle.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "persistence/Localize.h"
#include "persistence/NumberFormat.h"

namespace varitap {
namespace {

using test::TempDir;

// Makes <root>/<name>.vst with the probe at Contents/<arch>-linux/<name>.so.
struct ProbeBundle {
    ProbeBundle(const std::string& root, const std::string& name)
        : bundle(root + "/" + name + ".vst"), library(bundle + "/Contents/" VARITAP_ARCH_DIR "/" + name + ".so") {
        const std::string messages = bundle + "/Contents/Resources/locale/de/LC_MESSAGES";
        std::filesystem::create_directories(bundle + "/Contents/" VARITAP_ARCH_DIR);
        std::filesystem::create_directories(messages);
        std::filesystem::copy_file(VARITAP_PROBE_LIBRARY, library);
        std::filesystem::copy_file(VARITAP_PROBE_CATALOGUE, messages + "/varitap.mo");
    }
    std::string bundle;
    std::string library;
};

// The probe loaded from one path; unloaded again at the end of the scope.
struct LoadedProbe {
    explicit LoadedProbe(const std::string& path) : handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle) bundle = reinterpret_cast<const char* (*)()>(::dlsym(handle, "varitapProbeBundle"));
        if (handle) localize = reinterpret_cast<const char* (*)(const char*)>(::dlsym(handle, "varitapProbeLocalize"));
    }
    ~LoadedProbe() {
        if (handle) ::dlclose(handle);
    }
    LoadedProbe(const LoadedProbe&) = delete;
    LoadedProbe& operator=(const LoadedProbe&) = delete;
    bool ok() const { return bundle && localize; }

    void* handle;
    const char* (*bundle)() = nullptr;
    const char* (*localize)(const char*) = nullptr;
};

// The bundle is where the library really lives, however the host reached
// it: directly, through a symlinked .so in a plug-in folder, through a
// symlinked bundle, or by a relative path. Each case gets its own copy of
// the probe: the loader recognises a file it has already loaded and would
// answer with the path of the first load.
TEST(PluginBundleTest, FindsTheRealBundleHoweverTheLibraryWasReached) {
    TempDir root;
    std::filesystem::create_directories(root / "plugins");
    const std::string arch = "/Contents/" VARITAP_ARCH_DIR "/";
    struct Case {
        const char* name;
        const char* link;  // made to point at the bundle (".vst") or the library (".so")
        std::string load;  // the path handed to the loader
    };
    const Case cases[] = {
        {"Plain", nullptr, root / "Plain.vst" + arch + "Plain.so"},
        {"Linked", "plugins/Linked.so", root / "plugins/Linked.so"},
        {"Target", "Alias.vst", root / "Alias.vst" + arch + "Target.so"},
        {"Relative", nullptr, "./Relative.vst" + arch + "Relative.so"},
    };
    const std::filesystem::path previous = std::filesystem::current_path();
    for (const Case& c : cases) {
        ProbeBundle bundle(root.path(), c.name);
        if (c.link) {
            const std::string target = std::string(c.link).find(".so") != std::string::npos ? bundle.library
                                                                                             : bundle.bundle;
            ASSERT_EQ(::symlink(target.c_str(), (root / c.link).c_str()), 0) << c.name;
        }
        std::filesystem::current_path(root.path());
        LoadedProbe probe(c.load);
        const std::string found = probe.ok() ? probe.bundle() : "";
        std::filesystem::current_path(previous);
        EXPECT_EQ(found, std::filesystem::canonical(bundle.bundle).string()) << c.name;
    }
}

// Resources by name and by type in a folder of a bundle. Outside a bundle
// (this program) the bundle is three folders above the program.
TEST(PluginBundleTest, ResourcesByNameAndByTypeInAFolder) {
    const std::filesystem::path program = std::filesystem::canonical("/proc/self/exe");
    EXPECT_EQ(copyPluginBundle(), program.parent_path().parent_path().parent_path().string());
    TempDir root;
    const std::string bundle = root / "R.vst";
    const std::string resources = bundle + "/Contents/Resources";
    std::filesystem::create_directories(resources + "/Backgrounds/folder.png");
    std::filesystem::create_directories(resources + "/directory.xml");
    ASSERT_TRUE(test::writeFile(resources + "/varitap.factory.presets.xml", "<x/>"));
    for (const char* name : {"b.png", "a.png", "a.b.png", "notes.txt", ".png", "png", "Cpng", "z.png.txt"})
        ASSERT_TRUE(test::writeFile(resources + "/Backgrounds/" + name, "data"));

    EXPECT_EQ(bundleResourcePath(bundle, "varitap.factory.presets", "xml"),
              resources + "/varitap.factory.presets.xml");
    EXPECT_EQ(bundleResourcePath(bundle, "missing", "xml"), "");
    EXPECT_EQ(bundleResourcePath(bundle, "directory", "xml"), "");  // not a file
    EXPECT_EQ(bundleResourcePath("", "varitap.factory.presets", "xml"), "");
    EXPECT_EQ(bundleResourcePath(bundle, nullptr, "xml"), "");

    const std::vector<std::string> expected = {resources + "/Backgrounds/a.b.png", resources + "/Backgrounds/a.png",
                                               resources + "/Backgrounds/b.png"};
    EXPECT_EQ(bundleResources(bundle, "png", "Backgrounds"), expected);
    EXPECT_EQ(bundleResources(bundle, "xml", nullptr),
              std::vector<std::string>{resources + "/varitap.factory.presets.xml"});
    EXPECT_TRUE(bundleResources(bundle, "png", "Missing").empty());
    EXPECT_TRUE(bundleResources("", "png", "Backgrounds").empty());
    EXPECT_TRUE(bundleResources(root / "none.vst", "png", "Backgrounds").empty());
}

// localize() runs inside the probe library, placed in a bundle whose string
// table translates "Delay" and "#%d Input Channel" into German.
TEST(LocalizeTest, WordsComeFromTheBundlesTableUnderAGermanLocaleOnly) {
    TempDir root;
    ProbeBundle bundle(root.path(), "Words");
    LoadedProbe probe(bundle.library);
    ASSERT_TRUE(probe.ok()) << dlerror();

    // As a host that calls setlocale(LC_ALL, "") under LC_ALL=C; LANGUAGE is
    // then ignored by gettext, so even a German preference changes nothing.
    ::setenv("LC_ALL", "C", 1);
    ::setenv("LANGUAGE", "de", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    for (const char* word : {"Delay", "#%d Input Channel", "Volume"}) EXPECT_STREQ(probe.localize(word), word);

    // Results share one buffer of 1024 bytes: the next call overwrites the
    // last result, the input is never returned itself, and a long text is
    // cut to fit, never inside a UTF-8 character (1022 letters and a
    // two-byte letter keep only the 1022).
    const char* first = probe.localize("Delay");
    EXPECT_EQ(probe.localize("Feedback"), first);
    EXPECT_STREQ(first, "Feedback");
    const std::string word = "Resonance";
    EXPECT_NE(probe.localize(word.c_str()), word.c_str());
    EXPECT_EQ(std::strlen(probe.localize(std::string(3000, 'x').c_str())), 1023u);
    const std::string accented = std::string(1022, 'a') + "ü" + "tail";
    EXPECT_EQ(std::string(probe.localize(accented.c_str())), std::string(1022, 'a'));

    ::unsetenv("LANGUAGE");
    ::unsetenv("LC_ALL");
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    EXPECT_STREQ(probe.localize("Delay"), "Verzögerung");
    EXPECT_STREQ(probe.localize("#%d Input Channel"), "#%d Eingangskanal");
    EXPECT_STREQ(probe.localize("Volume"), "Volume");  // not in the table
    // The empty word is never looked up (gettext would answer with the
    // table's header).
    EXPECT_STREQ(probe.localize(""), "");
    EXPECT_STREQ(probe.localize(nullptr), "");
    std::setlocale(LC_ALL, "C");
}

constexpr char kUntouched[] = "untouched";

// The text a formatter leaves in a buffer that held kUntouched.
template <typename Format>
std::string textOf(Format format) {
    char text[32];
    std::strcpy(text, kUntouched);
    format(text);
    return text;
}

std::string decimalsText(float v, int d) { return textOf([&](char* t) { formatFloatDecimals(v, t, d); }); }
std::string decibelsText(float v, int d) { return textOf([&](char* t) { formatDecibels(v, t, d); }); }
std::string millisecondsText(float samples, int d, float rate) {
    return textOf([&](char* t) { formatMilliseconds(samples, t, d, rate); });
}

// Every example text, checked under whatever locale the process runs in.
void expectEveryExample() {
    // Eight characters of digits, point and sign; digits are truncated (0.7f
    // is 0.69999998807...); the digit limit drops a leading digit; out of
    // range the text is left as it was.
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, const char*> floats[] = {
        {0.5f, "0.500000"},         {12.25f, "12.25000"},       {-3.0f, "-3.00000"},        {-0.5f, "-0.50000"},
        {0.0f, "0.000000"},         {-0.0f, "0.000000"},        {1e-9f, "0.000000"},        {100.125f, "100.1250"},
        {0.7f, "0.699999"},         {1234567.0f, "1234567."},   {12345678.0f, "2345678."},  {99999992.0f, "9999992."},
        {-9999999.0f, "-999999."},  {123456789.0f, kUntouched}, {100000000.0f, kUntouched}, {-10000000.0f, kUntouched},
        {inf, kUntouched},          {-inf, kUntouched},         {std::nanf(""), kUntouched},
    };
    for (const auto& row : floats) EXPECT_EQ(textOf([&](char* t) { formatFloat(row.first, t); }), row.second) << row.first;

    // "%7d" cut to eight characters, "Huge!" from 100000000 up.
    const std::pair<long, const char*> longs[] = {
        {0, "      0"},         {22, "     22"},         {-5, "     -5"},         {1234567, "1234567"},
        {99999999, "99999999"}, {-1234567, "-1234567"}, {-12345678, "-1234567"}, {LONG_MIN, "-9223372"},
        {100000000, "Huge!"},   {LONG_MAX, "Huge!"},
    };
    for (const auto& row : longs) EXPECT_EQ(textOf([&](char* t) { formatLong(row.first, t); }), row.second) << row.first;

    // The cut after maxDecimals digits (below 1 nothing is cut); milliseconds
    // in single precision (56000 samples at 44100 Hz; no text without a
    // sample rate); decibels.
    const std::pair<std::string, const char*> texts[] = {
        {decimalsText(0.25f, -1), "0.250000"},  {decimalsText(0.25f, 0), "0.250000"},
        {decimalsText(12.25f, 1), "12.2"},      {decimalsText(0.5f, 2), "0.50"},
        {decimalsText(12.25f, 5), "12.25000"},  {decimalsText(1234567.0f, 2), "1234567."},
        {decimalsText(1e9f, 2), kUntouched},    {millisecondsText(56000.0f, 1, 44100.0f), "1269.8"},
        {millisecondsText(56000.0f, -1, 44100.0f), "1269.841"}, {millisecondsText(44100.0f, 2, 44100.0f), "1000.00"},
        {millisecondsText(0.0f, 1, 48000.0f), "0.0"},           {millisecondsText(1.0f, 1, 0.0f), kUntouched},
        {decibelsText(0.0f, 2), "-oo"},         {decibelsText(-1.0f, 2), "-oo"},
        {decibelsText(std::nanf(""), 2), "-oo"}, {decibelsText(1.0f, -1), "0.000000"},
        {decibelsText(0.5f, 2), "-6.02"},       {decibelsText(2.0f, 2), "6.02"},
        {decibelsText(10.0f, 1), "20.0"},
    };
    for (size_t i = 0; i < std::size(texts); ++i) EXPECT_EQ(texts[i].first, texts[i].second) << "row " << i;
}

TEST(NumberFormatTest, TheExampleTextsUnderTheCAndADecimalCommaLocale) {
    expectEveryExample();
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    // The locale's decimal point is a comma: digits made by printf show it.
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    expectEveryExample();
    std::setlocale(LC_ALL, "C");
}

TEST(NumberFormatTest, NeverWritesMoreThanEightCharactersAndTheTerminator) {
    std::mt19937 random(20261121);
    std::uniform_real_distribution<float> magnitude(-9.0f, 8.0f);
    std::uniform_int_distribution<int> sign(0, 1);
    for (int i = 0; i < 20000; ++i) {
        const float value = (sign(random) ? -1.0f : 1.0f) * std::pow(10.0f, magnitude(random));
        char text[32];
        std::memset(text, '#', sizeof(text));
        text[0] = '\0';
        formatFloat(value, text);
        const size_t length = std::strlen(text);
        ASSERT_LE(length, 8u) << value;
        for (size_t k = length + 1; k < sizeof(text); ++k) ASSERT_EQ(text[k], '#') << value;
        if (length == 0) continue;  // out of range, untouched
        ASSERT_EQ(length, 8u) << value << " -> " << text;
        ASSERT_NE(std::strchr(text, '.'), nullptr) << value;
        ASSERT_EQ(text[0] == '-', value < 0) << value;
        // Below a million every integer digit fits: the text read back is
        // the value truncated to the decimals shown.
        if (std::fabs(value) < 1e6f) {
            double shown = 0;
            std::from_chars(text, text + length, shown);
            const size_t decimals = length - 1 - static_cast<size_t>(std::strchr(text, '.') - text);
            const double magnitude = std::fabs(static_cast<double>(value));
            ASSERT_LE(std::fabs(shown), magnitude + 1e-12) << value << " " << text;
            ASSERT_GT(std::fabs(shown), magnitude - std::pow(10.0, -static_cast<double>(decimals)) - 1e-12)
                << value << " " << text;
        }
    }
}

}  // namespace
}  // namespace varitap
