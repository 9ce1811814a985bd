#include "tests/plugins/effect_instance.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <unistd.h>

namespace test_effect {

namespace {

constexpr int32_t kUniqueId = ('T' << 24) | ('E' << 16) | ('f' << 8) | 'x';
constexpr int32_t kPlugCategEffect = 1;
constexpr int32_t kPlugCategSynth = 2;
constexpr int32_t kVendorVersion = 1000;
// Buffer sizes the VST 2.4 interface promises for the texts the host asks for.
constexpr size_t kParamTextSize = 8;
constexpr size_t kEffectNameSize = 32;
constexpr size_t kVendorTextSize = 64;
constexpr size_t kShortLabelSize = kVstMaxShortLabelLen;
// Hosts copy their strings without a length check; offer far more than any needs.
constexpr size_t kHostTextSize = 256;
constexpr std::array<char, 4> kChunkTag{'T', 'E', 'c', 'h'};
constexpr size_t kChunkHeaderSize = kChunkTag.size() + sizeof(uint32_t);
constexpr std::array<std::string_view, 4> kHostCapabilities{"sendVstTimeInfo", "sizeWindow",
                                                            "supplyIdle", "receiveVstMidiEvent"};

void copyText(void* destination, std::string_view text, size_t capacity) {
    const size_t length = std::min(text.size(), capacity - 1);
    std::memcpy(destination, text.data(), length);
    static_cast<char*>(destination)[length] = '\0';
}

int32_t arrangementFor(int32_t pins) {
    switch (pins) {
    case 1:
        return kSpeakerArrMono;
    case 2:
        return kSpeakerArrStereo;
    case 4:
        return kSpeakerArr40Music;
    case 6:
        return kSpeakerArr51;
    case 8:
        return kSpeakerArr71Music;
    default:
        return kSpeakerArrUserDefined;
    }
}

std::string describe(const VstSpeakerArrangement* arrangement) {
    if (arrangement == nullptr)
        return "null";
    std::string text =
        std::to_string(arrangement->type) + " " + std::to_string(arrangement->numChannels);
    const int32_t speakers = std::clamp(arrangement->numChannels, 0, 8);
    for (int32_t i = 0; i < speakers; ++i)
        text += " " + std::to_string(arrangement->speakers[i].type);
    return text;
}

std::optional<std::vector<float>> parseChunk(const void* data, intptr_t size, size_t count) {
    if (data == nullptr || size < 0 ||
        static_cast<size_t>(size) != kChunkHeaderSize + count * sizeof(float))
        return std::nullopt;
    const auto* bytes = static_cast<const char*>(data);
    if (!std::equal(kChunkTag.begin(), kChunkTag.end(), bytes))
        return std::nullopt;
    uint32_t stored = 0;
    std::memcpy(&stored, bytes + kChunkTag.size(), sizeof stored);
    if (stored != count)
        return std::nullopt;
    std::vector<float> values(count);
    std::memcpy(values.data(), bytes + kChunkHeaderSize, count * sizeof(float));
    return values;
}

TestEffect* instanceOf(AEffect* effect) {
    return effect == nullptr ? nullptr : static_cast<TestEffect*>(effect->object);
}

// Instances the host has not closed. Hosts rightly drop some records without closing them (wrong
// magic, instruments); holding them here keeps a leak checker in the host's process to the
// host's own leaks. Never destroyed, for the same reason.
std::set<TestEffect*>& openInstances() {
    static auto* const instances = new std::set<TestEffect*>;
    return *instances;
}

intptr_t dispatchCall(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                      float opt) {
    TestEffect* self = instanceOf(effect);
    if (self == nullptr)
        return 0;
    const intptr_t result = self->dispatch(opcode, index, value, ptr, opt);
    if (opcode == effClose) {
        openInstances().erase(self);
        delete self;
    }
    return result;
}

void processReplacingCall(AEffect* effect, float** inputs, float** outputs, int32_t frames) {
    if (TestEffect* self = instanceOf(effect))
        self->process("process", inputs, outputs, frames, false);
}

void processAccumulatingCall(AEffect* effect, float** inputs, float** outputs, int32_t frames) {
    if (TestEffect* self = instanceOf(effect))
        self->process("processAccumulating", inputs, outputs, frames, true);
}

void processDoubleCall(AEffect* effect, double** inputs, double** outputs, int32_t frames) {
    if (TestEffect* self = instanceOf(effect))
        self->process("processDouble", inputs, outputs, frames, false);
}

void setParameterCall(AEffect* effect, int32_t index, float value) {
    if (TestEffect* self = instanceOf(effect))
        self->setParameter(index, value);
}

float getParameterCall(AEffect* effect, int32_t index) {
    const TestEffect* self = instanceOf(effect);
    return self == nullptr ? 0.0f : self->getParameter(index);
}

} // namespace

TestEffect::TestEffect(const Options& options, audioMasterCallback host, Entry entry, CallLog log)
    : options(options), host(host), entry(entry), log(std::move(log)) {
    parameters.assign(static_cast<size_t>(options.params), 0.0f);
    if (!parameters.empty())
        parameters[0] = 1.0f;
    if (options.delay > 0) {
        const int32_t delayed = std::min(options.mainInputs(), std::max(options.outputs, 0));
        delayLines.assign(static_cast<size_t>(delayed),
                          DelayLine(static_cast<size_t>(options.delay)));
    }
    editorRect.right = options.editorWidth;
    editorRect.bottom = options.editorHeight;

    effect.magic = options.badMagic ? 0x12345678 : kEffectMagic;
    effect.dispatcher = dispatchCall;
    effect.process = processAccumulatingCall;
    effect.setParameter = options.nullFunctions ? nullptr : setParameterCall;
    effect.getParameter = options.nullFunctions ? nullptr : getParameterCall;
    effect.numPrograms = 1;
    effect.numParams = options.params;
    effect.numInputs = options.inputs;
    effect.numOutputs = options.outputs;
    effect.flags = (options.noReplacing ? 0 : effFlagsCanReplacing) |
                   (options.editor ? effFlagsHasEditor : 0) |
                   (options.chunks ? effFlagsProgramChunks : 0) |
                   (options.synth ? effFlagsIsSynth : 0) |
                   (options.doublePrecision ? effFlagsCanDoubleReplacing : 0);
    effect.initialDelay = options.initialDelay();
    effect.ioRatio = 1.0f;
    effect.object = this;
    effect.uniqueID = kUniqueId;
    effect.version = 1;
    effect.processReplacing =
        options.noReplacing || options.nullFunctions ? nullptr : processReplacingCall;
    effect.processDoubleReplacing = options.doublePrecision ? processDoubleCall : nullptr;
}

intptr_t TestEffect::ask(int32_t opcode, intptr_t value, void* ptr) {
    return host == nullptr ? 0 : host(&effect, opcode, 0, value, ptr, 0.0f);
}

// Real plug-ins ask for the transport and for idle time from whichever thread they are on.
void TestEffect::askTimeAndIdle() {
    if (!options.hostCalls)
        return;
    const auto* time = reinterpret_cast<const VstTimeInfo*>(
        ask(audioMasterGetTime, kVstTempoValid | kVstTimeSigValid, nullptr));
    if (time != nullptr && time->tempo < 0.0)
        log.line("negative tempo");
    ask(audioMasterNeedIdle, 0, nullptr);
}

std::string TestEffect::askText(int32_t opcode) {
    std::array<char, kHostTextSize> text{};
    ask(opcode, 0, text.data());
    return std::string(text.data(), strnlen(text.data(), text.size()));
}

// The questions plug-ins commonly ask while being made, before the host has attached itself.
void TestEffect::askHostAtEntry() {
    if (host == nullptr) {
        log.line("host null");
        return;
    }
    // Many plug-ins ask for the version before they have a record at all.
    log.line("hostVersion " + std::to_string(host(nullptr, audioMasterVersion, 0, 0, nullptr, 0)));
    log.line("hostSampleRate " + std::to_string(ask(audioMasterGetSampleRate)));
    log.line("hostBlockSize " + std::to_string(ask(audioMasterGetBlockSize)));
    log.line("hostProcessLevel " + std::to_string(ask(audioMasterGetCurrentProcessLevel)));
    log.line("hostVendor " + askText(audioMasterGetVendorString));
    log.line("hostProduct " + askText(audioMasterGetProductString));
    log.line("hostVendorVersion " + std::to_string(ask(audioMasterGetVendorVersion)));
    for (const std::string_view capability : kHostCapabilities) {
        std::string text(capability);
        log.line("hostCanDo " + text + " " + std::to_string(ask(audioMasterCanDo, 0, text.data())));
    }
}

intptr_t TestEffect::open() {
    if (options.print)
        say("effOpen");
    const intptr_t answer =
        ask(audioMasterGetTime, kVstTimeSigValid | kVstTempoValid | kVstNanosValid);
    if (const auto* time = reinterpret_cast<const VstTimeInfo*>(answer)) {
        log.line("timeFlags " + std::to_string(time->flags));
        log.line("timeTempo " + number(time->tempo));
        log.line("timeSig " + std::to_string(time->timeSigNumerator) + "/" +
                 std::to_string(time->timeSigDenominator));
        log.line("timeNanoSeconds " + number(time->nanoSeconds));
    } else {
        log.line("hostTime null");
    }
    log.line("hostSampleRate " + std::to_string(ask(audioMasterGetSampleRate)));
    leaveIfAsked(options, log, "open");
    if (options.throwOpen) {
        log.line("throw effOpen");
        throw std::runtime_error("test_effect: effOpen");
    }
    return 0;
}

void TestEffect::resume() {
    if (options.throwResume) {
        log.line("throw effMainsChanged");
        throw std::runtime_error("test_effect: effMainsChanged");
    }
    for (DelayLine& line : delayLines)
        line.clear();
}

intptr_t TestEffect::dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    log.line("dispatch " + std::to_string(opcode) + " " + std::to_string(index) + " " +
             std::to_string(value) + " " + number(opt));
    switch (opcode) {
    case effOpen:
        return open();
    case effClose:
        log.line("framesProcessed " + std::to_string(framesProcessed));
        leaveIfAsked(options, log, "close");
        return 1;
    case effMainsChanged:
        if (value != 0)
            resume();
        else
            log.line("framesProcessed " + std::to_string(framesProcessed));
        return 0;
    case effGetParamLabel:
    case effGetParamDisplay:
    case effGetParamName:
        if (ptr == nullptr || !isParameter(index))
            return 0;
        copyText(ptr, parameterText(opcode, index), kParamTextSize);
        return 1;
    case effCanBeAutomated:
        return isParameter(index) ? 1 : 0;
    case effEditGetRect:
    case effEditOpen:
    case effEditClose:
    case effEditIdle:
        return editorCall(opcode, ptr);
    case effGetChunk:
        return getChunk(ptr);
    case effSetChunk:
        return setChunk(value, ptr);
    case effConnectInput:
    case effConnectOutput:
        log.line((opcode == effConnectInput ? "connectInput " : "connectOutput ") +
                 std::to_string(index) + " " + std::to_string(value));
        return 1;
    case effGetInputProperties:
    case effGetOutputProperties:
        return pinProperties(opcode == effGetInputProperties, index, ptr);
    case effSetSpeakerArrangement:
        return setSpeakerArrangement(reinterpret_cast<const VstSpeakerArrangement*>(value),
                                     static_cast<const VstSpeakerArrangement*>(ptr));
    case effGetPlugCategory:
        return options.synth ? kPlugCategSynth : kPlugCategEffect;
    case effGetEffectName:
        if (ptr == nullptr)
            return 0;
        copyText(ptr, entry == Entry::main ? "Test Effect (main)" : "Test Effect", kEffectNameSize);
        return 1;
    case effGetVendorString:
    case effGetProductString:
        if (ptr == nullptr)
            return 0;
        copyText(ptr, opcode == effGetVendorString ? "vst-adapter tests" : "Test Effect",
                 kVendorTextSize);
        return 1;
    case effGetVendorVersion:
        return kVendorVersion;
    case effCanDo:
        return ptr != nullptr &&
                       std::string_view(static_cast<const char*>(ptr)) == "receiveVstTimeInfo"
                   ? 1
                   : 0;
    case effGetTailSize:
        return options.tailSize();
    case effGetVstVersion:
        return kVstVersion;
    case effSetProcessPrecision:
        return processPrecision(value);
    default:
        return 0;
    }
}

std::string TestEffect::parameterText(int32_t opcode, int32_t index) const {
    if (opcode == effGetParamName)
        return index == 0 ? "Gain" : "Param" + std::to_string(index);
    if (opcode == effGetParamLabel)
        return index == 0 ? "x" : "";
    char text[32];
    std::snprintf(text, sizeof text, "%.3f",
                  static_cast<double>(loadParameter(static_cast<size_t>(index))));
    return text;
}

intptr_t TestEffect::pinProperties(bool input, int32_t index, void* ptr) const {
    const int32_t pins = input ? effect.numInputs : effect.numOutputs;
    if (ptr == nullptr || index < 0 || index >= pins)
        return 0;
    const bool sideChain = input && index >= options.mainInputs();
    const int32_t type =
        sideChain ? kSpeakerArrMono : arrangementFor(input ? options.mainInputs() : pins);
    auto& properties = *static_cast<VstPinProperties*>(ptr);
    properties = VstPinProperties{};
    properties.arrangementType = type;
    properties.flags = kVstPinIsActive | kVstPinUseSpeaker |
                       (type == kSpeakerArrStereo && index % 2 == 0 ? kVstPinIsStereo : 0);
    const std::string number = std::to_string(index + 1);
    const char* name = sideChain ? "Side-chain " : input ? "Input " : "Output ";
    const char* shortName = sideChain ? "Sc" : input ? "In" : "Out";
    copyText(properties.label, name + number, sizeof properties.label);
    copyText(properties.shortLabel, shortName + number, kShortLabelSize);
    return 1;
}

intptr_t TestEffect::setSpeakerArrangement(const VstSpeakerArrangement* input,
                                           const VstSpeakerArrangement* output) const {
    log.line("speakerArrangement input " + describe(input));
    log.line("speakerArrangement output " + describe(output));
    const bool fits = input != nullptr && output != nullptr &&
                      input->numChannels == std::max(effect.numInputs, 0) &&
                      output->numChannels == std::max(effect.numOutputs, 0);
    return fits ? 1 : 0;
}

intptr_t TestEffect::getChunk(void* ptr) {
    if (!options.chunks || ptr == nullptr)
        return 0;
    const auto count = static_cast<uint32_t>(parameters.size());
    chunk.assign(kChunkTag.begin(), kChunkTag.end());
    chunk.resize(kChunkHeaderSize + count * sizeof(float));
    std::memcpy(chunk.data() + kChunkTag.size(), &count, sizeof count);
    std::memcpy(chunk.data() + kChunkHeaderSize, parameters.data(), count * sizeof(float));
    *static_cast<void**>(ptr) = chunk.data();
    log.line("chunkGet " + std::to_string(chunk.size()));
    return static_cast<intptr_t>(chunk.size());
}

intptr_t TestEffect::setChunk(intptr_t size, const void* data) {
    if (!options.chunks)
        return 0;
    auto values = parseChunk(data, size, parameters.size());
    log.line("chunkSet " + std::to_string(size) + (values ? " accepted" : " refused"));
    if (!values)
        return 0;
    parameters = std::move(*values);
    return 1;
}

void TestEffect::actLikeAUser() {
    if (options.resizeTo) {
        editorRect.right = options.resizeTo->first;
        editorRect.bottom = options.resizeTo->second;
        log.line("sizeWindow " +
                 std::to_string(host(&effect, audioMasterSizeWindow, editorRect.right,
                                     editorRect.bottom, nullptr, 0.0f)));
    }
    if (options.editTo && !parameters.empty()) {
        storeParameter(0, *options.editTo);
        host(&effect, audioMasterAutomate, 0, 0, nullptr, *options.editTo);
        log.line("edited");
    }
}

intptr_t TestEffect::editorCall(int32_t opcode, void* ptr) {
    if (!options.editor)
        return 0;
    switch (opcode) {
    case effEditGetRect:
        if (ptr == nullptr)
            return 0;
        *static_cast<ERect**>(ptr) = &editorRect;
        return 1;
    case effEditOpen:
        log.line("editorOpen " + std::to_string(++editorOpens));
        leaveIfAsked(options, log, "editor");
        return 1;
    case effEditClose:
        log.line("editorClose " + std::to_string(++editorCloses));
        return 1;
    default:
        log.line("editorIdle " + std::to_string(++editorIdles));
        if (editorIdles == 1)
            actLikeAUser();
        askTimeAndIdle();
        return 1;
    }
}

intptr_t TestEffect::processPrecision(intptr_t precision) const {
    if (precision == kVstProcessPrecision32)
        return 1;
    return precision == kVstProcessPrecision64 && options.doublePrecision ? 1 : 0;
}

void TestEffect::setParameter(int32_t index, float value) {
    log.line("setParameter " + std::to_string(index) + " " + number(value));
    if (isParameter(index))
        storeParameter(static_cast<size_t>(index), value);
}

float TestEffect::getParameter(int32_t index) const {
    return isParameter(index) ? loadParameter(static_cast<size_t>(index)) : 0.0f;
}

template <typename Sample>
void TestEffect::process(std::string_view name, Sample** inputs, Sample** outputs, int32_t frames,
                         bool accumulate) {
    log.line(std::string(name) + " " + std::to_string(frames));
    if (options.print)
        say(name);
    if (frames <= 0 || outputs == nullptr)
        return;
    if (framesProcessed > 0)
        leaveIfAsked(options, log, "process");
    if (options.crash)
        std::raise(SIGSEGV);
    askTimeAndIdle();
    framesProcessed += frames;
    const double factor = gain();
    const int32_t sources = options.mainInputs();
    for (int32_t channel = 0; channel < effect.numOutputs; ++channel) {
        Sample* out = outputs[channel];
        if (out == nullptr)
            continue;
        const Sample* in = inputs != nullptr && channel < sources ? inputs[channel] : nullptr;
        DelayLine* line = static_cast<size_t>(channel) < delayLines.size()
                              ? &delayLines[static_cast<size_t>(channel)]
                              : nullptr;
        if (in != nullptr && line == nullptr && !accumulate && !options.hum) {
            // The common case on its own, without per-sample branches, so that the compiler
            // vectorises it (see CMakeLists.txt): benchmarks that stream through this plug-in
            // measure the host.
            // Widening to double and multiplying by 1.0 is exact, so the default is identity.
            for (int32_t i = 0; i < frames; ++i)
                out[i] = static_cast<Sample>(static_cast<double>(in[i]) * factor);
            continue;
        }
        for (int32_t i = 0; i < frames; ++i) {
            // Widening to double and multiplying by 1.0 is exact, so the default is identity.
            double sample = in != nullptr ? static_cast<double>(in[i]) : 0.0;
            if (line != nullptr)
                sample = line->push(sample);
            if (options.hum)
                sample += 0.25;
            const auto result = static_cast<Sample>(sample * factor);
            out[i] = accumulate ? out[i] + result : result;
        }
    }
}

AEffect* handOver(std::unique_ptr<TestEffect> instance) {
    openInstances().insert(instance.get());
    return &instance.release()->record();
}

void leaveIfAsked(const Options& options, const CallLog& log, std::string_view place) {
    if (options.exitAt == place) {
        log.line("exit " + std::string(place));
        std::exit(0);
    }
    if (options.crashAt == place) {
        log.line("crash " + std::string(place));
        std::raise(SIGSEGV);
    }
}

// printf output stays in stdio's buffer until exit on purpose: the host must keep it out of
// its data channel then too, not only at the moment it is written.
void say(std::string_view where) {
    std::printf("test_effect printf %.*s\n", static_cast<int>(where.size()), where.data());
    writeAll(STDOUT_FILENO, "test_effect write " + std::string(where) + "\n");
}

} // namespace test_effect
