#include "tests/common/child_process.h"
#include "tests/common/vst3_bundles.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Scan {
    testing_support::ChildResult result;
    std::vector<Json> lines; // without `seconds`
    double seconds = 0;      // the whole run's
};

Scan scan(const std::vector<std::string>& arguments) {
    auto options = testing_support::headless();
    options.environment["TEST_VST3"] = "second-effect";
    // A crashing plug-in must die by its signal, also under AddressSanitizer.
    *options.environment["ASAN_OPTIONS"] += ":handle_segv=0";
    const auto start = std::chrono::steady_clock::now();
    Scan run;
    run.result = testing_support::runAdapter(arguments, options);
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::istringstream out(run.result.out);
    for (std::string line; std::getline(out, line);) {
        run.lines.push_back(Json::parse(line));
        // Every plug-in has its answer within about the time limit.
        EXPECT_LE(run.lines.back()["seconds"].get<double>(), 4.0) << line;
        run.lines.back().erase("seconds");
    }
    return run;
}

// One folder where plug-ins load, refuse, are no plug-ins, crash while loading or opening, call
// exit() and hang: each gets its line in path order; links back into the folder and to a plug-in
// already found add nothing; the rescan comes from the cache, and a damaged cache is rebuilt.
TEST(Scan, EveryPluginGetsItsStatusAndTheCacheGivesThemAgain) {
    testing_support::Vst3Layouts folder;
    for (const char* name : {"good", "load@crash-at=entry", "open@crash-at=open",
                             "hang@hang-at=open", "exit@exit-at=open", "synth@synth"})
        fs::copy_file(TEST_EFFECT_PATH, folder / (std::string(name) + ".so"));
    fs::copy_file(TEST_EFFECT_NO_ENTRY_PATH, folder / "library.so");
    scratch::writeFile(folder / "notes.so", "not a plug-in");
    scratch::writeFile(folder / "readme.txt", "");
    const std::string bundle = folder.bundle("Gain", TEST_VST3_PATH);
    fs::create_directory(folder / "sub");
    fs::create_directory_symlink("..", folder / "sub/loop");
    fs::create_symlink("../good.so", folder / "sub/same.so");

    const std::string cache = folder / "cache.json";
    const std::vector<std::string> arguments{"scan", "--vst",   folder.path(), "--timeout",
                                             "3",    "--cache", cache};
    const auto first = scan(arguments);
    const std::string refusal = "Could not load VST: " + folder.path() + "/";
    const std::pair<std::string, std::string> expected[] = {
        {"ok", ""},
        {"refused", refusal + "Gain.vst3"},
        {"crashed", "VST called exit (stage: opening)"},
        {"ok", ""},
        {"timeout", "no answer within 3 seconds"},
        {"failed", refusal + "library.so"},
        {"crashed", "VST crashed with SIGSEGV (stage: loading)"},
        {"failed", folder / "notes.so: file too short"},
        {"crashed", "VST crashed with SIGSEGV (stage: opening)"},
        {"refused", refusal + "synth@synth.so"},
    };
    EXPECT_EQ(first.result.exitStatus, 0);
    ASSERT_EQ(first.lines.size(), std::size(expected)) << first.result.out;
    for (size_t i = 0; i < first.lines.size(); ++i) {
        EXPECT_EQ(first.lines[i]["status"], expected[i].first) << first.lines[i];
        EXPECT_EQ(first.lines[i].value("message", ""), expected[i].second) << first.lines[i];
    }
    // What the loaded ones are, as the parent reads it.
    EXPECT_EQ(first.lines[0], Json::parse(R"({"path":")" + bundle + R"(","kind":"vst3","class":0,
        "status":"ok","name":"Test VST3 Gain","vendor":"Test Vendor","version":"","category":"",
        "class_id":"5445535456535433434F4D5000000001","inputs":2,"input_names":["",""],
        "outputs":2,"output_names":["",""],"parameters":2,"has_editor":false,"latency":0,
        "tail":0})"));
    EXPECT_EQ(first.lines[3], Json::parse(R"({"path":")" + folder / "good.so" + R"(",
        "kind":"vst2","status":"ok","name":"Test Effect","vendor":"","version":"1",
        "unique_id":1413834360,"category":"Effect","inputs":2,"input_names":["Input 1","Input 2"],
        "outputs":2,"output_names":["Output 1","Output 2"],"parameters":1,"has_editor":false,
        "latency":0,"tail":0})"));
    EXPECT_EQ(first.lines[6]["signal"], "SIGSEGV");

    const auto second = scan(arguments);
    EXPECT_EQ(second.result.out, first.result.out);
    EXPECT_LT(second.seconds, first.seconds / 5);

    scratch::writeFile(cache, R"({"format":"vst-adapter scan cache","version":)");
    const auto third = scan(arguments);
    EXPECT_EQ(third.result.err,
              "Ignoring the scan cache '" + cache + "': not a scan cache, or damaged\n");
    EXPECT_EQ(third.lines, first.lines);
}

} // namespace
