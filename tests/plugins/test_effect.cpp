// The in-tree VST 2.4 test plug-in. The same source builds modules that differ only in which entry
// functions they export (see CMakeLists.txt). What an instance does is read in the entry function
// from TEST_EFFECT, comma-separated words (README.md lists them); TEST_EFFECT_LOG names a file
// for the call log. Without words: 2 in, 2 out, one parameter (the gain, 1.0), output = input.

#include "hosting/vst2/vst2_abi.h"
#include "tests/plugins/call_log.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace test_effect {
namespace {

struct Options {
    std::set<std::string> flags;
    std::map<std::string, int64_t> numbers;
    std::pair<int16_t, int16_t> editorSize{320, 200};
    std::string exitAt, crashAt, hangAt, throwAt;
    bool has(const char* flag) const { return flags.count(flag) != 0; }
    int32_t get(const char* key, int32_t fallback) const {
        const auto found = numbers.find(key);
        return found == numbers.end() ? fallback : static_cast<int32_t>(found->second);
    }
    int32_t inputs() const { return has("sidechain") ? 4 : get("inputs", 2); }
    int32_t mainInputs() const { return has("sidechain") ? 2 : std::max(inputs(), 0); }
};

[[noreturn]] void refuse(std::string_view word) {
    throw std::invalid_argument("bad TEST_EFFECT word: " + std::string(word));
}

int64_t readNumber(std::string_view text, std::string_view word, int64_t low, int64_t high) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size() || value < low ||
        value > high)
        refuse(word);
    return value;
}

// An unknown word, or a number that does not read or is out of range, refuses the whole list,
// so that a typo in a test cannot pass as the default behaviour.
Options parseOptions(std::string_view words) {
    static const std::set<std::string_view> flags{
        "null", "bad-magic", "synth", "throw-resume", "print", "sidechain", "editor", "chunks",
        "double", "hum", "crash", "host-calls", "null-functions", "no-params", "spawn",
        // Faults for the validator's checks.
        "denormal", "block-dependent", "unseeded", "chunk-ignored", "nan-at-max", "slow",
        "keep-on-resume", "allocate", "allocate-at-start", "lock", "sleep", "file-io",
        "audio-thread-callback", "remote-set-lost", "editor-races-audio", "arrangement-breaks"};
    constexpr std::pair<int64_t, int64_t> any{INT32_MIN, INT32_MAX};
    static const std::map<std::string_view, std::pair<int64_t, int64_t>> ranges{
        {"inputs", any},    {"outputs", any},        {"params", {0, 1024}},
        {"latency", any},   {"delay", {0, 1 << 20}}, {"tail", any},
        {"edit", {0, 100}}, {"echo", {1, 1 << 20}},  {"leak", {1, 1 << 20}}};
    static const std::set<std::string_view> places{"entry",  "open",  "process",
                                                   "editor", "close", "params"};
    Options options;
    while (!words.empty()) {
        const auto comma = words.find(',');
        const auto word = words.substr(0, comma);
        words = comma == std::string_view::npos ? std::string_view{} : words.substr(comma + 1);
        const auto equals = word.find('=');
        const auto key = word.substr(0, equals);
        const auto value = equals == std::string_view::npos ? "" : word.substr(equals + 1);
        if (word.empty())
            continue;
        if (equals == std::string_view::npos && flags.count(word) != 0)
            options.flags.emplace(word);
        else if (const auto range = ranges.find(key); range != ranges.end())
            options.numbers[std::string(key)] =
                readNumber(value, word, range->second.first, range->second.second);
        else if (const auto cross = value.find('x'); key == "editor" && cross != value.npos) {
            options.flags.emplace("editor");
            options.editorSize = {
                static_cast<int16_t>(readNumber(value.substr(0, cross), word, 1, 32767)),
                static_cast<int16_t>(readNumber(value.substr(cross + 1), word, 1, 32767))};
        } else if ((key == "exit-at" || key == "crash-at" || key == "hang-at" ||
                    key == "throw-at") &&
                   places.count(value) != 0)
            (key == "exit-at"    ? options.exitAt
             : key == "crash-at" ? options.crashAt
             : key == "hang-at"  ? options.hangAt
                                 : options.throwAt) = std::string(value);
        else
            refuse(word);
    }
    return options;
}

// printf output stays in stdio's buffer until exit on purpose: the host must keep it out of its
// data channel then too.
void say(std::string_view where) {
    std::printf("test_effect printf %.*s\n", static_cast<int>(where.size()), where.data());
    writeAll(STDOUT_FILENO, "test_effect write " + std::string(where) + "\n");
}

void copyText(void* destination, const std::string& text, size_t capacity) {
    std::strncpy(static_cast<char*>(destination), text.c_str(), capacity - 1);
    static_cast<char*>(destination)[capacity - 1] = '\0';
}

// The words whose faults change every block's output (besides echo=N).
constexpr const char* faultWords[] = {"nan-at-max", "block-dependent", "unseeded", "denormal",
                                      "slow"};
// The words whose faults break the audio thread's rules without changing the output.
constexpr const char* realtimeFaultWords[] = {"allocate", "allocate-at-start", "lock", "sleep",
                                              "file-io"};
// Process calls that `allocate-at-start` allocates in.
constexpr int64_t startingCalls = 4;

class TestEffect {
  public:
    TestEffect(Options chosen, audioMasterCallback host, CallLog log);
    ~TestEffect() {
        if (zeroDevice >= 0)
            ::close(zeroDevice);
    }
    TestEffect(const TestEffect&) = delete;
    TestEffect& operator=(const TestEffect&) = delete;
    AEffect effect{};

    intptr_t dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
    bool isParameter(int32_t index) const {
        return index >= 0 && static_cast<size_t>(index) < parameters.size();
    }
    void setParameter(int32_t index, float value) {
        log.line("setParameter " + std::to_string(index) + " " + number(value));
        // A plug-in that keeps edits made on another thread than its audio's in a copy the
        // audio never reads.
        if (options.has("remote-set-lost") && framesProcessed > 0 &&
            std::this_thread::get_id() != audioThread)
            return;
        if (isParameter(index))
            atomicParameter(static_cast<size_t>(index)).store(value);
    }
    float getParameter(int32_t index) {
        return isParameter(index) ? atomicParameter(static_cast<size_t>(index)).load() : 0.0f;
    }
    template <typename Sample>
    void process(const char* name, Sample** inputs, Sample** outputs, int32_t frames,
                 bool accumulate);
    // Ends the process, or throws, the way TEST_EFFECT asks at `place`, logged first.
    void leaveIfAsked(std::string_view place) const {
        if (options.exitAt == place) {
            log.line("exit " + std::string(place));
            std::exit(0);
        }
        if (options.crashAt == place) {
            log.line("crash " + std::string(place));
            std::raise(SIGSEGV);
        }
        if (options.hangAt == place) {
            log.line("hang " + std::string(place));
            for (;;)
                pause();
        }
        if (options.throwAt == place)
            fail(std::string(place));
    }
    [[noreturn]] intptr_t fail(const std::string& where) const {
        log.line("throw " + where);
        throw std::runtime_error("test_effect: " + where);
    }
    intptr_t ask(int32_t opcode, intptr_t value = 0, void* ptr = nullptr, float opt = 0) {
        return host == nullptr ? 0 : host(&effect, opcode, 0, value, ptr, opt);
    }

  private:
    // An editor changes parameters on the main thread while audio runs on another.
    std::atomic_ref<float> atomicParameter(size_t index) {
        return std::atomic_ref<float>(parameters[index]);
    }
    intptr_t pinProperties(bool input, int32_t index, void* ptr) const;
    intptr_t editorCall(int32_t opcode, void* ptr);
    // What the validator's fault words do to a block already computed.
    template <typename Sample> void applyFaults(Sample** inputs, Sample** outputs, int32_t frames) {
        // The identity plug-in is what the throughput benchmarks measure.
        if (!faulty)
            return;
        const bool nanAtMax = options.has("nan-at-max") &&
                              std::any_of(parameters.begin() + (parameters.empty() ? 0 : 1),
                                          parameters.end(), [](float v) { return v >= 1.0f; });
        const double blockGain =
            options.has("block-dependent") ? 1.0 + static_cast<double>(frames) / 4096.0 : 1.0;
        for (int32_t channel = 0; channel < effect.numOutputs; ++channel) {
            Sample* out = outputs[channel];
            const Sample* in =
                inputs != nullptr && channel < options.mainInputs() ? inputs[channel] : nullptr;
            auto* echo =
                static_cast<size_t>(channel) < echoLines.size() ? &echoLines[channel] : nullptr;
            for (int32_t i = 0; out != nullptr && i < frames; ++i) {
                double sample = static_cast<double>(out[i]) * blockGain + instanceOffset;
                if (echo != nullptr) {
                    auto& held = (*echo)[(echoAt + static_cast<size_t>(i)) % echo->size()];
                    sample += 0.5 * held;
                    held = in != nullptr ? static_cast<double>(in[i]) : 0.0;
                }
                out[i] = nanAtMax ? std::numeric_limits<Sample>::quiet_NaN()
                                  : static_cast<Sample>(sample);
                if (options.has("denormal") && out[i] == Sample(0))
                    out[i] = std::numeric_limits<float>::denorm_min();
            }
        }
        if (!echoLines.empty())
            echoAt = (echoAt + static_cast<size_t>(frames)) % echoLines.front().size();
        if (options.has("slow")) {
            // Busy, as slow code is: about 25 microseconds a frame, slower than real time.
            const auto until =
                std::chrono::steady_clock::now() + std::chrono::microseconds(25) * frames;
            while (std::chrono::steady_clock::now() < until) {
            }
        }
    }

    // What the real-time fault words make a process call do. Looked up once: a word lookup
    // may itself allocate.
    struct RealtimeFaults {
        bool allocate, allocateAtStart, lock, sleep, fileIo;
    };
    void breakRealtimeRules() {
        if (!realtimeFaulty)
            return;
        ++processCalls;
        if (realtimeFaults.allocate ||
            (realtimeFaults.allocateAtStart && processCalls <= startingCalls)) {
            void* volatile scratch = ::operator new(4096);
            ::operator delete(scratch);
        }
        if (realtimeFaults.lock)
            const std::lock_guard hold(processLock);
        if (realtimeFaults.sleep)
            std::this_thread::sleep_for(std::chrono::microseconds(1));
        if (char byte = 0; realtimeFaults.fileIo && ::read(zeroDevice, &byte, 1) < 0)
            log.line("file-io read failed");
    }

    void askTimeAndIdle() {
        if (!options.has("host-calls"))
            return;
        ask(audioMasterGetTime, kVstTempoValid | kVstTimeSigValid);
        ask(audioMasterNeedIdle);
    }

    Options options;
    audioMasterCallback host;
    CallLog log;
    std::vector<float> parameters;
    std::vector<std::vector<double>> delayLines;
    size_t delayAt = 0;
    std::vector<char> chunk;
    std::vector<std::vector<double>> echoLines;
    size_t echoAt = 0;
    double instanceOffset = 0.0;
    bool faulty = false; // a fault word changes the output
    bool realtimeFaulty = false;
    bool arrangementBroken = false;  // every later block is NaN
    bool callsBackFromAudio = false; // looked up once: a long word's lookup allocates
    RealtimeFaults realtimeFaults{};
    int64_t processCalls = 0;
    std::mutex processLock;
    int zeroDevice = -1;
    ERect editorRect{};
    std::atomic<int64_t> framesProcessed{0};
    std::atomic<std::thread::id> audioThread{};
    int editorIdles = 0;
};

TestEffect* instanceOf(AEffect* effect) {
    return effect == nullptr ? nullptr : static_cast<TestEffect*>(effect->object);
}

// Instances the host has not closed. Hosts rightly drop some records without closing them (wrong
// magic, instruments); holding them keeps a leak checker in the host to the host's own leaks.
std::set<TestEffect*>& openInstances() {
    static auto* const instances = new std::set<TestEffect*>;
    return *instances;
}

TestEffect::TestEffect(Options chosen, audioMasterCallback host, CallLog log)
    : options(std::move(chosen)), host(host), log(std::move(log)) {
    parameters.assign(static_cast<size_t>(options.has("no-params") ? 0 : options.get("params", 1)),
                      0.0f);
    if (!parameters.empty())
        parameters[0] = 1.0f;
    const int32_t delay = options.get("delay", 0);
    if (delay > 0)
        delayLines.assign(static_cast<size_t>(std::min(options.mainInputs(),
                                                       std::max(options.get("outputs", 2), 0))),
                          std::vector<double>(static_cast<size_t>(delay), 0.0));
    if (const int32_t echo = options.get("echo", 0); echo > 0)
        echoLines.assign(static_cast<size_t>(std::max(options.get("outputs", 2), 0)),
                         std::vector<double>(static_cast<size_t>(echo), 0.0));
    // Each instance a little louder than the one before: output no fresh instance repeats.
    static int instancesMade = 0;
    if (options.has("unseeded"))
        instanceOffset = 1e-3 * instancesMade++;
    faulty =
        !echoLines.empty() || std::any_of(std::begin(faultWords), std::end(faultWords),
                                          [this](const char* word) { return options.has(word); });
    realtimeFaulty = std::any_of(std::begin(realtimeFaultWords), std::end(realtimeFaultWords),
                                 [this](const char* word) { return options.has(word); });
    callsBackFromAudio = options.has("audio-thread-callback");
    realtimeFaults = {options.has("allocate"), options.has("allocate-at-start"),
                      options.has("lock"), options.has("sleep"), options.has("file-io")};
    if (realtimeFaults.fileIo)
        zeroDevice = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    editorRect.right = options.editorSize.first;
    editorRect.bottom = options.editorSize.second;
    const bool nullFunctions = options.has("null-functions");
    effect.magic = options.has("bad-magic") ? 0x12345678 : kEffectMagic;
    effect.dispatcher = [](AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                           float opt) -> intptr_t {
        TestEffect* self = instanceOf(e);
        if (self == nullptr)
            return 0;
        const intptr_t result = self->dispatch(opcode, index, value, ptr, opt);
        if (opcode == effClose) {
            openInstances().erase(self);
            delete self;
        }
        return result;
    };
    effect.process = [](AEffect* e, float** in, float** out, int32_t frames) {
        instanceOf(e)->process("processAccumulating", in, out, frames, true);
    };
    if (!nullFunctions) {
        effect.setParameter = [](AEffect* e, int32_t i, float v) {
            instanceOf(e)->setParameter(i, v);
        };
        effect.getParameter = [](AEffect* e, int32_t i) { return instanceOf(e)->getParameter(i); };
        effect.processReplacing = [](AEffect* e, float** in, float** out, int32_t frames) {
            instanceOf(e)->process("process", in, out, frames, false);
        };
    }
    if (options.has("double"))
        effect.processDoubleReplacing = [](AEffect* e, double** in, double** out, int32_t frames) {
            instanceOf(e)->process("processDouble", in, out, frames, false);
        };
    effect.numPrograms = 1;
    effect.numParams = static_cast<int32_t>(parameters.size());
    effect.numInputs = options.inputs();
    effect.numOutputs = options.get("outputs", 2);
    effect.flags = effFlagsCanReplacing | (options.has("editor") ? effFlagsHasEditor : 0) |
                   (options.has("chunks") ? effFlagsProgramChunks : 0) |
                   (options.has("synth") ? effFlagsIsSynth : 0) |
                   (options.has("double") ? effFlagsCanDoubleReplacing : 0);
    effect.initialDelay = options.get("latency", delay);
    effect.ioRatio = 1.0f;
    effect.object = this;
    effect.uniqueID = ('T' << 24) | ('E' << 16) | ('f' << 8) | 'x';
    effect.version = 1;
}

intptr_t TestEffect::dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    log.line("dispatch " + std::to_string(opcode) + " " + std::to_string(index) + " " +
             std::to_string(value) + " " + number(opt));
    char text[32];
    switch (opcode) {
    case effOpen:
        if (options.has("print"))
            say("effOpen");
        leaveIfAsked("open");
        if (const int32_t kib = options.get("leak", 0); kib > 0) {
            // Held, never freed: memory every open keeps, still reachable for leak checkers.
            static auto* const kept = new std::vector<std::vector<char>>;
            kept->emplace_back(static_cast<size_t>(kib) * 1024, 'L');
        }
        return 0;
    case effClose:
        leaveIfAsked("close");
        return 1;
    case effMainsChanged:
        if (value != 0 && options.has("throw-resume"))
            fail("effMainsChanged");
        if (!options.has("keep-on-resume"))
            for (auto* lines : {&delayLines, &echoLines})
                for (auto& line : *lines)
                    std::fill(line.begin(), line.end(), 0.0);
        return 0;
    case effGetParamName:
        leaveIfAsked("params");
        [[fallthrough]];
    case effGetParamLabel:
    case effGetParamDisplay:
        if (ptr == nullptr || !isParameter(index))
            return 0;
        std::snprintf(text, sizeof text, "%.3f", static_cast<double>(getParameter(index)));
        copyText(ptr,
                 opcode == effGetParamName ? (index == 0 ? "Gain" : "Param" + std::to_string(index))
                 : opcode == effGetParamLabel ? (index == 0 ? "x" : "")
                                              : text,
                 8);
        return 1;
    case effCanBeAutomated:
        return isParameter(index);
    case effEditGetRect:
    case effEditOpen:
    case effEditClose:
    case effEditIdle:
        return options.has("editor") ? editorCall(opcode, ptr) : 0;
    case effGetChunk: {
        if (!options.has("chunks") || ptr == nullptr)
            return 0;
        // The tag, the parameter count (32-bit) and the values, in the machine's byte order.
        const auto count = static_cast<uint32_t>(parameters.size());
        chunk.assign({'T', 'E', 'c', 'h'});
        chunk.insert(chunk.end(), reinterpret_cast<const char*>(&count),
                     reinterpret_cast<const char*>(&count) + 4);
        chunk.insert(chunk.end(), reinterpret_cast<const char*>(parameters.data()),
                     reinterpret_cast<const char*>(parameters.data() + count));
        *static_cast<void**>(ptr) = chunk.data();
        return static_cast<intptr_t>(chunk.size());
    }
    case effSetChunk: {
        if (!options.has("chunks"))
            return 0;
        const auto count = static_cast<uint32_t>(parameters.size());
        const auto* bytes = static_cast<const char*>(ptr);
        const bool fits = bytes != nullptr && value == static_cast<intptr_t>(8 + 4 * count) &&
                          std::memcmp(bytes, "TEch", 4) == 0 &&
                          std::memcmp(bytes + 4, &count, 4) == 0;
        log.line("chunkSet " + std::to_string(value) + (fits ? " accepted" : " refused"));
        if (fits && !options.has("chunk-ignored"))
            std::memcpy(parameters.data(), bytes + 8, 4 * count);
        return fits ? 1 : 0;
    }
    case effGetInputProperties:
    case effGetOutputProperties:
        return pinProperties(opcode == effGetInputProperties, index, ptr);
    case effSetSpeakerArrangement: {
        const auto* in = reinterpret_cast<const VstSpeakerArrangement*>(value);
        const auto* out = static_cast<const VstSpeakerArrangement*>(ptr);
        const bool fits = in != nullptr && out != nullptr &&
                          in->numChannels == std::max(effect.numInputs, 0) &&
                          out->numChannels == std::max(effect.numOutputs, 0);
        if (!fits && options.has("arrangement-breaks"))
            arrangementBroken = true;
        return fits;
    }
    case effGetPlugCategory:
        return options.has("synth") ? 2 : 1;
    case effGetEffectName:
    case effGetProductString:
        if (ptr == nullptr)
            return 0;
        copyText(ptr, "Test Effect", 32);
        return 1;
    case effGetTailSize:
        return options.get("tail", options.get("delay", 0));
    case effGetVstVersion:
        return kVstVersion;
    case effSetProcessPrecision:
        return value == kVstProcessPrecision32 || options.has("double");
    default:
        return 0;
    }
}

// Each group of pins reports its arrangement; the side-chain pins are a mono group.
intptr_t TestEffect::pinProperties(bool input, int32_t index, void* ptr) const {
    const int32_t pins = input ? effect.numInputs : effect.numOutputs;
    if (ptr == nullptr || index < 0 || index >= pins)
        return 0;
    const bool sideChain = input && index >= options.mainInputs();
    const int32_t group = input ? options.mainInputs() : pins;
    const int32_t type = sideChain || group == 1 ? kSpeakerArrMono
                         : group == 2            ? kSpeakerArrStereo
                                                 : kSpeakerArrUserDefined;
    auto& properties = *static_cast<VstPinProperties*>(ptr);
    properties = VstPinProperties{};
    properties.arrangementType = type;
    properties.flags = kVstPinIsActive | kVstPinUseSpeaker |
                       (type == kSpeakerArrStereo && index % 2 == 0 ? kVstPinIsStereo : 0);
    const std::string name = sideChain ? "Side-chain " : input ? "Input " : "Output ";
    copyText(properties.label, name + std::to_string(index + 1), sizeof properties.label);
    return 1;
}

intptr_t TestEffect::editorCall(int32_t opcode, void* ptr) {
    if (opcode == effEditGetRect) {
        if (ptr != nullptr)
            *static_cast<ERect**>(ptr) = &editorRect;
        return ptr != nullptr;
    }
    if (opcode == effEditOpen)
        leaveIfAsked("editor");
    // An editor that reads the audio's state unguarded: it crashes when opened while another
    // thread processes.
    if (opcode == effEditOpen && options.has("editor-races-audio") && framesProcessed > 0 &&
        audioThread.load() != std::this_thread::get_id())
        std::raise(SIGSEGV);
    if (opcode != effEditIdle)
        return 1;
    // On the first idle the editor acts like a user turning the gain.
    ++editorIdles;
    if (editorIdles == 1 && options.numbers.count("edit") != 0 && !parameters.empty()) {
        const float edited = static_cast<float>(options.get("edit", 0)) / 100.0f;
        atomicParameter(0).store(edited);
        host(&effect, audioMasterAutomate, 0, 0, nullptr, edited);
        log.line("edited");
    }
    askTimeAndIdle();
    return 1;
}

// Output channel c carries main input c (delayed, times the gain), silence past the main inputs.
// With a side-chain, its pins are added in and then scribbled over, as plug-ins that work in
// place do: a host must lay down silence on pins it leaves unconnected every block.
template <typename Sample>
void TestEffect::process(const char* name, Sample** inputs, Sample** outputs, int32_t frames,
                         bool accumulate) {
    if (log.enabled())
        log.line(std::string(name) + " " + std::to_string(frames));
    if (options.has("print"))
        say(name);
    if (frames <= 0 || outputs == nullptr)
        return;
    breakRealtimeRules();
    if (framesProcessed > 0)
        leaveIfAsked("process");
    if (options.has("crash"))
        std::raise(SIGSEGV);
    askTimeAndIdle();
    if (callsBackFromAudio)
        // Editor work asked for from the audio thread.
        host(&effect, audioMasterSizeWindow, options.editorSize.first, options.editorSize.second,
             nullptr, 0.0f);
    audioThread = std::this_thread::get_id();
    framesProcessed += frames;
    const double gain = parameters.empty() ? 1.0 : atomicParameter(0).load();
    const double hum = options.has("hum") ? 0.25 : 0.0;
    const int32_t sources = options.mainInputs();
    const size_t start = delayAt;
    for (int32_t channel = 0; channel < effect.numOutputs; ++channel) {
        Sample* out = outputs[channel];
        const Sample* in = inputs != nullptr && channel < sources ? inputs[channel] : nullptr;
        auto* line =
            static_cast<size_t>(channel) < delayLines.size() ? &delayLines[channel] : nullptr;
        if (out == nullptr)
            continue;
        if (in != nullptr && line == nullptr && !accumulate && hum == 0.0 &&
            sources == effect.numInputs) {
            // The common case alone, so that the compiler vectorises it: benchmarks streaming
            // through this plug-in measure the host. Widening and multiplying by 1.0 is exact.
            for (int32_t i = 0; i < frames; ++i)
                out[i] = static_cast<Sample>(static_cast<double>(in[i]) * gain);
            continue;
        }
        for (int32_t i = 0; i < frames; ++i) {
            double sample = in != nullptr ? static_cast<double>(in[i]) : 0.0;
            for (int32_t pin = sources; in != nullptr && pin < effect.numInputs; ++pin)
                sample += static_cast<double>(inputs[pin][i]);
            if (line != nullptr) {
                std::swap(sample, (*line)[(start + static_cast<size_t>(i)) % line->size()]);
            }
            const auto result = static_cast<Sample>((sample + hum) * gain);
            out[i] = accumulate ? out[i] + result : result;
        }
    }
    if (!delayLines.empty())
        delayAt = (start + static_cast<size_t>(frames)) % delayLines.front().size();
    applyFaults(inputs, outputs, frames);
    for (int32_t channel = 0; arrangementBroken && channel < effect.numOutputs; ++channel)
        std::fill_n(outputs[channel], frames, std::numeric_limits<Sample>::quiet_NaN());
    for (int32_t pin = sources; inputs != nullptr && pin < effect.numInputs; ++pin)
        std::fill_n(inputs[pin], frames, Sample(0.5));
}

} // namespace

// TEST_EFFECT's words, then those of the module's file name after an '@' ("x@crash-at=open.so"),
// so that one folder can hold copies that each misbehave their own way.
std::string chosenWords() {
    const char* set = std::getenv("TEST_EFFECT");
    std::string words = set == nullptr ? "" : set;
    Dl_info module{};
    if (::dladdr(reinterpret_cast<void*>(&chosenWords), &module) != 0 && module.dli_fname) {
        std::string name = module.dli_fname;
        name = name.substr(name.rfind('/') + 1);
        if (const auto at = name.find('@'); at != std::string::npos)
            words += "," + name.substr(at + 1, name.rfind('.') - at - 1);
    }
    return words;
}

AEffect* enter(audioMasterCallback host, bool viaMain) {
    CallLog log(std::getenv("TEST_EFFECT_LOG"));
    log.line(viaMain ? "entry main" : "entry VSTPluginMain");
    Options options;
    try {
        options = parseOptions(chosenWords());
    } catch (const std::invalid_argument& error) {
        log.line(std::string("error ") + error.what());
        std::fprintf(stderr, "test_effect: %s\n", error.what());
        return nullptr;
    }
    if (options.has("print"))
        say("entry");
    // A helper process of the plug-in's own, never told to end: only its group's end ends it.
    if (options.has("spawn")) {
        const pid_t child = fork();
        if (child == 0)
            for (;;)
                pause();
        log.line("spawned " + std::to_string(child));
    }
    auto instance = std::make_unique<TestEffect>(options, host, log);
    instance->leaveIfAsked("entry");
    if (options.has("null"))
        return nullptr;
    openInstances().insert(instance.get());
    return &instance.release()->effect;
}

} // namespace test_effect

extern "C" {

#ifdef TEST_EFFECT_UNRESOLVED_SYMBOL
// Defined nowhere: the system loader refuses the module, as it does a plug-in built against a
// library the machine lacks.
void testEffectMissingFunction();
#endif

#ifdef TEST_EFFECT_EXPORT_VST_PLUGIN_MAIN
__attribute__((visibility("default"))) AEffect* VSTPluginMain(audioMasterCallback host) {
#ifdef TEST_EFFECT_UNRESOLVED_SYMBOL
    testEffectMissingFunction();
#endif
    return test_effect::enter(host, false);
}
#endif

#ifdef TEST_EFFECT_EXPORT_MAIN
// C++ reserves "main" for the program's entry; the asm label exports the symbol by that name.
__attribute__((visibility("default"))) AEffect*
vstMainEntry(audioMasterCallback host) __asm__("main");
AEffect* vstMainEntry(audioMasterCallback host) {
    return test_effect::enter(host, true);
}
#endif
}
